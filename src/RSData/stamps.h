// Routines on change stamps, counters and texts.

#pragma once

#include <string>
#include <string_view>

#include "practice/identifiers.h"
#include "practice/stamps.h"
#include "session/session.h"

namespace brenik {

// Those that need no session.
using practice::RSADS2N, practice::RSALPHA2N, practice::RSDT, practice::RSN2ADS,
    practice::RSN2ALPHA;

// Day 0 of stamps is fixed (practice/stamps.h), so this has nothing to do. Programs call it before
// they use stamps.
inline void RSSETBASEDATE(const Session&) {}

// The stamp of this moment, but never earlier in the day than the system table's TLASTDELTA.
std::string RSNOW(Session& session);

// A stamp for people, "01/01/98  9:00a"; without the date for day 0. A stamp shorter than 4 bytes
// is read as if zeros followed. The other arguments change nothing: two are ignored, and rounding
// up by a second, which `round` asks for, never reaches the minutes.
std::string CDT2STR(std::string_view stamp, const Value& = {}, const Value& = {},
                    bool round = false);

// The text with `count` characters from a 1-based start replaced; a start past the end appends.
std::string MYSTUFF(std::string_view text, std::size_t start, std::size_t count,
                    std::string_view insert);

// Any value as text for messages and logs.
std::string XTOC(const Value& value);

}  // namespace brenik
