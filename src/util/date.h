// A calendar date as tables store it: a Julian day number, or empty.
//
// Day numbers count Gregorian days from 4713 BC, so that 2000-01-01 is 2451545. The number 0 is the
// empty date, which sorts before every other.

#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

namespace brenik {

struct CivilDay {
    int year = 0;
    int month = 0;
    int day = 0;
};

class Date {
  public:
    constexpr Date() = default;
    constexpr explicit Date(std::int32_t julian_day) : julian_day_(julian_day) {}

    // The date of a calendar day in the years 1 to 9999; the empty date if there is no such day.
    static Date from_civil(int year, int month, int day);
    // Reads "YYYYMMDD". Anything else, blank text included, gives the empty date.
    static Date from_ymd(std::string_view text);
    // Reads "MM/DD/YY" or "MM/DD/YYYY". Two-digit years are in the 1900s. Invalid text gives the
    // empty date.
    static Date from_mdy(std::string_view text);

    constexpr bool empty() const { return julian_day_ == 0; }
    constexpr std::int32_t julian_day() const { return julian_day_; }
    // Year, month and day; all three are 0 for the empty date.
    CivilDay civil() const;
    // "YYYYMMDD"; 8 blanks for the empty date.
    std::string to_ymd() const;
    // "MM/DD/YY"; "  /  /  " for the empty date.
    std::string to_mdy() const;

    friend constexpr auto operator<=>(const Date&, const Date&) = default;

  private:
    std::int32_t julian_day_ = 0;
};

}  // namespace brenik
