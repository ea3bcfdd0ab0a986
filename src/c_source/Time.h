// Times of day in the forms in which events keep and show them.
//
//   minutes text   minutes since midnight, "540"; what reads as 0 is no time
//   12-hour text   " 9:05a", "12:30p": hour in 2 characters, ":", minutes, "a" or "p"
//   24-hour text   "14:30"
//
// A to-do item has a marker in place of its time, which counts as 1440 minutes. Each form spells
// the marker in its own way, "TO-DO ", "TO-DO" or "TODO", and programs compare with just that
// spelling.

#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "session/session.h"
#include "util/value.h"

namespace brenik {

// Minutes text as 12-hour text: "TO-DO " for text that begins with "T", 6 blanks for no time.
std::string EVETIME2AP(std::string_view minutes);

// 12-hour text as minutes text in 4 characters; "TODO" for text that begins with "t" or "T". The
// minutes are read after the colon; without one the hour is read again as the minutes, so that "9P"
// gives "1269".
std::string AP2EVETIME(std::string_view text);

// 12-hour text as minutes; 1440 for text with a "T" in it. The minutes are read from the fourth
// character on, and 12 a.m. counts as 12 p.m.: "12:30a" gives 750.
Number TIME2MIN(std::string_view text);

// Minutes as 12-hour text; "TO-DO " for exactly 1440.
std::string MIN2AMPM(const Number& minutes);

// 24-hour text as 12-hour text: "TO-DO " for text that begins with "T", one blank for text that
// begins with two.
std::string AMPM(std::string_view text);

// 12-hour text as 24-hour text: "TO-DO" for text with a "t" or "T" in it, 5 blanks for text that
// begins with two. 12 a.m. stays 12: "12:15a" gives "12:15".
std::string AMPMTO24(std::string_view text);

// A duration in words, "1 hour  and 30 minutes ", with a blank after each part and so two before
// "and"; without an argument that of the current event's DURATION.
std::string HOURSTEXT(Session& session, std::optional<Number> hours = {});

}  // namespace brenik
