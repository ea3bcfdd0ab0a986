// Routines on change stamps, counters and texts.

#pragma once

#include <string>
#include <string_view>

#include "practice/identifiers.h"
#include "practice/stamps.h"
#include "session/session.h"

namespace brenik {

// Routines that need no session.
using practice::RSADS2N, practice::RSALPHA2N, practice::RSDT, practice::RSN2ADS,
    practice::RSN2ALPHA;

// Does nothing: day 0 of stamps is fixed (practice/stamps.h). Programs call it before they use
// stamps.
inline void RSSETBASEDATE(const Session&) {}

// The stamp of the current moment, but never earlier in the day than the system table's TLASTDELTA.
std::string RSNOW(Session& session);

// A stamp for people, "01/01/98  9:00a"; without the date for day 0. Missing bytes of a short stamp
// count as 0. The other arguments have no effect: two are ignored, and rounding up by a second, for
// `round`, never reaches the minutes.
std::string CDT2STR(std::string_view stamp, const Value& = {}, const Value& = {},
                    bool round = false);

// Replaces `count` characters from `start`, counted from 1, with `insert`; appends if `start` is
// past the end.
std::string MYSTUFF(std::string_view text, std::size_t start, std::size_t count,
                    std::string_view insert);

// Any value as text for messages and logs.
std::string XTOC(const Value& value);

}  // namespace brenik
