// Change stamps: the moment of a change in 4 bytes, kept as text.
//
// A stamp holds the days since 31 December 1997 and the 2-second units since midnight. Each is an
// unsigned 16-bit number, most significant byte first, so that stamps compare byte by byte in time
// order. Four bytes of value 0 mean no date.

#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "util/bytes.h"
#include "util/date.h"
#include "util/value.h"

namespace brenik::practice {

inline constexpr std::size_t kStampSize = 4;
inline constexpr Date kBaseDate{2450814};  // 31 December 1997

// The stamp of a date and, if given, of the seconds since its midnight.
inline std::string RSDT(Date date, std::optional<double> seconds = {}) {
    if (date.empty()) return std::string(kStampSize, '\0');
    const int day = date.julian_day() - kBaseDate.julian_day();
    const std::int64_t units = Value(Number{seconds.value_or(0) / 2}).whole();
    // Division, not a shift: negative numbers make no valid stamp, but their bytes must stay the
    // same.
    return {static_cast<char>(day / 256), static_cast<char>(day % 256),
            static_cast<char>(units / 256), static_cast<char>(units % 256)};
}

struct StampedMoment {
    Date date;  // kBaseDate if the stamp has no date
    int seconds;
};

// The moment that a stamp encodes. Missing bytes count as 0.
inline StampedMoment read_stamp(std::string_view stamp) {
    std::string whole(stamp.substr(0, kStampSize));
    whole.resize(kStampSize, '\0');
    const Byte* bytes = as_bytes(whole).data();
    return {Date(kBaseDate.julian_day() + load_be16(bytes)), 2 * load_be16(bytes + 2)};
}

}  // namespace brenik::practice
