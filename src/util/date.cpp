// Calendar arithmetic on Julian day numbers. The C library's time functions do not serve: on some
// systems they lack the years before 1970, and they have no empty date.

#include "util/date.h"

#include <algorithm>
#include <array>
#include <optional>

namespace brenik {

namespace {

constexpr int kLastYear = 9999;
constexpr std::int32_t kFirstDay = 1721426;  // 0001-01-01
constexpr std::int32_t kLastDay = 5373484;   // 9999-12-31

bool is_leap_year(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int days_in_month(int year, int month) {
    constexpr std::array kDays = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && is_leap_year(year) ? 29 : kDays[static_cast<std::size_t>(month) - 1];
}

std::optional<int> whole_number(std::string_view digits) {
    int number = 0;
    for (const char c : digits) {
        if (c < '0' || c > '9') return std::nullopt;
        number = number * 10 + (c - '0');
    }
    return number;
}

void put_digits(std::string& text, std::size_t start, std::size_t count, int number) {
    for (std::size_t i = start + count; i-- > start; number /= 10) {
        text[i] = static_cast<char>('0' + number % 10);
    }
}

std::string_view without_blanks(std::string_view text) {
    const std::size_t first = text.find_first_not_of(' ');
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// Removes a part of a date, at most `longest` digits, and its slash from the front of `text`.
std::optional<int> take_part(std::string_view& text, std::size_t longest) {
    const std::size_t length = std::min(text.find('/'), text.size());
    if (length == 0 || length > longest) return std::nullopt;
    const std::optional<int> part = whole_number(text.substr(0, length));
    text.remove_prefix(std::min(length + 1, text.size()));
    return part;
}

}  // namespace

Date Date::from_civil(int year, int month, int day) {
    if (year < 1 || year > kLastYear || month < 1 || month > 12) return {};
    if (day < 1 || day > days_in_month(year, month)) return {};
    // Years are counted from March, so that the leap day is the last day of the year.
    const int march_year = year + 4800 - (month <= 2 ? 1 : 0);
    const int march_month = (month + 9) % 12;
    return Date(day + (153 * march_month + 2) / 5 + 365 * march_year + march_year / 4 -
                march_year / 100 + march_year / 400 - 32045);
}

Date Date::from_ymd(std::string_view text) {
    if (text.size() != 8) return {};
    const auto year = whole_number(text.substr(0, 4));
    const auto month = whole_number(text.substr(4, 2));
    const auto day = whole_number(text.substr(6, 2));
    return year && month && day ? from_civil(*year, *month, *day) : Date();
}

Date Date::from_mdy(std::string_view text) {
    std::string_view rest = without_blanks(text);
    if (std::count(rest.begin(), rest.end(), '/') != 2) return {};
    const auto month = take_part(rest, 2);
    const auto day = take_part(rest, 2);
    const bool with_century = rest.size() == 4;
    const auto year = take_part(rest, with_century ? 4 : 2);
    if (!month || !day || !year) return {};
    return from_civil(with_century ? *year : 1900 + *year, *month, *day);
}

// A day number read from a damaged file may lie outside the calendar; it has no parts.
CivilDay Date::civil() const {
    if (julian_day_ < kFirstDay || julian_day_ > kLastDay) return {};
    const int days = julian_day_ + 32044;
    const int century = (4 * days + 3) / 146097;
    const int day_of_century = days - 146097 * century / 4;
    const int year_of_century = (4 * day_of_century + 3) / 1461;
    const int day_of_year = day_of_century - 1461 * year_of_century / 4;
    const int march_month = (5 * day_of_year + 2) / 153;
    return {100 * century + year_of_century - 4800 + march_month / 10,
            march_month + 3 - 12 * (march_month / 10),
            day_of_year - (153 * march_month + 2) / 5 + 1};
}

std::string Date::to_ymd() const {
    std::string text(8, ' ');
    const CivilDay parts = civil();
    if (parts.day == 0) return text;
    put_digits(text, 0, 4, parts.year);
    put_digits(text, 4, 2, parts.month);
    put_digits(text, 6, 2, parts.day);
    return text;
}

std::string Date::to_mdy() const {
    std::string text = "  /  /  ";
    const CivilDay parts = civil();
    if (parts.day == 0) return text;
    put_digits(text, 0, 2, parts.month);
    put_digits(text, 3, 2, parts.day);
    put_digits(text, 6, 2, parts.year);
    return text;
}

}  // namespace brenik
