// Change stamps, the compact counters, and the texts that show them.
//
// A stamp is 4 bytes, kept as text: the days since the base date, then the 2-second units since
// midnight, each unsigned, 16 bits, most significant byte first, so that comparing two stamps byte
// by byte orders them in time. Four bytes of value 0 stand for no date. The counters write whole
// numbers in a fixed count of digits; identifiers of records are made with the base-62 one.

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "session/session.h"
#include "util/date.h"
#include "util/value.h"

namespace brenik {

inline constexpr std::size_t kStampSize = 4;

// Fixes day 0 of all stamps, 31 December 1997; runs at the end of StartUp, and does nothing the
// second time.
void RSSETBASEDATE(Session& session);

// The stamp of a date and, where given, of the seconds since its midnight.
// REQUIRES: RSSETBASEDATE has run.
std::string RSDT(const Session& session, Date date, std::optional<double> seconds = {});

// The stamp of this moment, but never earlier in the day than the system table's TLASTDELTA.
std::string RSNOW(Session& session);

// A stamp for people, "01/01/98  9:00a"; without the date for day 0. A stamp shorter than 4 bytes
// is read as if zeros followed. The other arguments change nothing: two are ignored, and rounding
// up by a second, which `round` asks for, never reaches the minutes.
std::string CDT2STR(const Session& session, std::string_view stamp, const Value& = {},
                    const Value& = {}, bool round = false);

// A number as exactly `digits` digits, and back. What does not fit is EngineFault kLimit. Going
// back, a character that is no digit counts as -1.
std::string RSN2ADS(std::int64_t number, int digits = 2);
std::int64_t RSADS2N(std::string_view text);
std::string RSN2ALPHA(std::int64_t number, int digits = 2);
std::int64_t RSALPHA2N(std::string_view text);

// The text with `count` characters from a 1-based start replaced; a start past the end appends.
std::string MYSTUFF(std::string_view text, std::size_t start, std::size_t count,
                    std::string_view insert);

// Any value as text for messages and logs.
std::string XTOC(const Value& value);

}  // namespace brenik
