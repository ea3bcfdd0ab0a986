// Forms in which events keep and show a time of day.
//
//   minutes text   minutes since midnight, "540"; text that reads as 0 means no time
//   12-hour text   " 9:05a", "12:30p": hour in 2 characters, ":", minutes, "a" or "p"
//   24-hour text   "14:30"
//
// A to-do item has a marker in place of its time, which counts as 1440 minutes. The marker is
// spelled "TO-DO ", "TO-DO" or "TODO", depending on the form; programs compare with the exact
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
// minutes follow the colon. Without a colon the hour also counts as minutes: "9P" gives "1269".
std::string AP2EVETIME(std::string_view text);

// 12-hour text as minutes; 1440 for text that contains "T". The minutes begin at the fourth
// character. 12 a.m. counts as 12 p.m.: "12:30a" gives 750.
Number TIME2MIN(std::string_view text);

// Minutes as 12-hour text; "TO-DO " for exactly 1440.
std::string MIN2AMPM(const Number& minutes);

// 24-hour text as 12-hour text. "TO-DO " for text that begins with "T"; one blank for text that
// begins with two.
std::string AMPM(std::string_view text);

// 12-hour text as 24-hour text. "TO-DO" for text that contains "t" or "T"; 5 blanks for text that
// begins with two. 12 a.m. stays 12: "12:15a" gives "12:15".
std::string AMPMTO24(std::string_view text);

// A duration in words, such as "1 hour  and 30 minutes ". Each part ends in a blank, so two blanks
// precede "and". Without an argument, the DURATION of the current event.
std::string HOURSTEXT(Session& session, std::optional<Number> hours = {});

}  // namespace brenik
