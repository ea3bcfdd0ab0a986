// Calendar arithmetic in months, days and anniversaries.

#include "c_source/Dates.h"

#include <array>
#include <cstdlib>

#include "c_source/Strings.h"
#include "util/runtime.h"

namespace brenik {

namespace {

constexpr int kMonths = 12;
constexpr std::array<const char*, kMonths> kMonthNames{
    "January", "February", "March",     "April",   "May",      "June",
    "July",    "August",   "September", "October", "November", "December"};

bool beyond_calendar(std::int64_t number) {
    constexpr std::int64_t kDaysOfTheCalendar = 3652059;
    return number < -kDaysOfTheCalendar || number > kDaysOfTheCalendar;
}

Date first_of_month(int month, int year) {
    // Only a carry brings a two-digit year here; it is in the 1900s, as in any text of a date.
    return Date::from_civil(year >= 0 && year < 100 ? year + 1900 : year, month, 1);
}

Date moved(Date date, int days) {
    const Date result(date.julian_day() + days);
    return date.empty() || result.civil().day == 0 ? Date() : result;
}

}  // namespace

Date MAKEDATE(std::int64_t month, std::int64_t day, std::int64_t year, bool clamp) {
    if (beyond_calendar(month) || beyond_calendar(day) || beyond_calendar(year)) return {};
    if (year < 100) year += 1900;
    year += (month - 1) / kMonths;
    if (month <= 0 && month % kMonths != -(kMonths - 1)) --year;
    month %= kMonths;
    if (month <= 0) month += kMonths;
    const int wanted = static_cast<int>(month);
    const Date date =
        moved(first_of_month(wanted, static_cast<int>(year)), static_cast<int>(day) - 1);
    const CivilDay reached = date.civil();
    return clamp && reached.month != wanted ? moved(date, -reached.day) : date;
}

std::string DAYSAWAY(Session& session, Date date) {
    if (date.empty()) return {};
    const std::int64_t days =
        std::int64_t{date.julian_day()} - std::int64_t{session.today().julian_day()};
    if (days == 0) return "Today";
    constexpr int kWidth = 8;
    const Number count{static_cast<double>(std::abs(days)), kWidth};
    return trimmed_number(count) + (days < 0 ? " days past" : " days to go");
}

Date NEXTBDAY(Session& session, Date date) {
    if (date.empty()) return Date::from_civil(2099, 12, 31);
    const CivilDay born = date.civil();
    const CivilDay today = session.today().civil();
    const bool over =
        born.month < today.month || (born.month == today.month && born.day < today.day);
    const int year = today.year + (over ? 1 : 0);
    const Date next = Date::from_civil(year, born.month, born.day);
    const bool leap_day = born.month == 2 && born.day == 29;
    return next.empty() && leap_day ? Date::from_civil(year, 3, 1) : next;
}

std::string DTOW(Date date) {
    const CivilDay parts = date.civil();
    if (parts.day == 0) return "No Date";
    return kMonthNames[static_cast<std::size_t>(parts.month) - 1] +
           (" " + trimmed_number({static_cast<double>(parts.day)})) + ", " +
           number_text({static_cast<double>(parts.year)}, 4, 0);
}

std::int64_t AGE(Session& session, const Value& date) {
    const Date today = session.today();
    const int year = today.civil().year;
    if (date.is_nil()) return today.julian_day() - Date::from_civil(year, 1, 1).julian_day();
    const Date born = CASTANY(session.ui, date, 'D').date();
    if (born.empty()) return 0;
    const CivilDay parts = born.civil();
    const bool before_anniversary = today < MAKEDATE(parts.month, parts.day, year);
    return year - parts.year - (before_anniversary ? 1 : 0);
}

}  // namespace brenik
