// Conversions between the forms of a time of day. They count in floating point, because the texts
// come from outside and may hold numbers of any size.

#include "c_source/Time.h"

#include <algorithm>
#include <cmath>

#include "util/runtime.h"

namespace brenik {

namespace {

constexpr double kMinutesPerHour = 60;
constexpr double kNoon = 12;
constexpr double kMinutesPerDay = 1440;
constexpr std::string_view kTwoBlanks = "  ";

std::string in_width(double number, int width) { return number_text({number}, width, 0); }

std::string lower(std::string_view text) {
    std::string result(text);
    for (char& c : result) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return result;
}

bool contains(std::string_view text, std::string_view search) {
    return position(search, text) != 0;
}

// "12" for midnight and noon; every other hour, 24 included, modulo 12 in 2 characters.
std::string hour_text(double hour) {
    return hour == 0 || hour == kNoon ? "12" : in_width(std::fmod(hour, kNoon), 2);
}

std::string minutes_of_hour(const Number& minutes) {
    const double past = std::fmod(minutes.amount, kMinutesPerHour);
    const std::string text = trimmed_number({past, minutes.width, minutes.decimals});
    return (text.size() < 2 ? "0" + text : text).substr(0, 2);
}

std::string twelve_hour_text(const Number& minutes) {
    const double hour = std::trunc(minutes.amount / kMinutesPerHour);
    return hour_text(hour) + ":" + minutes_of_hour(minutes) + (hour < kNoon ? "a" : "p");
}

// Converts the hour of a 12-hour text to the 24-hour clock, except that 12 a.m. stays 12.
double afternoon_hour(double hour, std::string_view upper_case_text) {
    return contains(upper_case_text, "P") && hour != kNoon ? hour + kNoon : hour;
}

std::string counted(const std::string& count, const char* what, bool several) {
    return count + what + (several ? "s " : " ");
}

}  // namespace

std::string EVETIME2AP(std::string_view minutes) {
    if (begins_with(minutes, "T")) return "TO-DO ";
    const Number number = numeric_value(minutes);
    return number.amount == 0 ? std::string(6, ' ') : twelve_hour_text(number);
}

std::string AP2EVETIME(std::string_view text) {
    const std::string capitals = upper(text);
    if (begins_with(capitals, "T")) return "TODO";
    const double hour = numeric_value(capitals).amount;
    const bool midnight = hour == kNoon && contains(capitals, "A");
    const double minutes = numeric_value(substring(capitals, position(":", capitals) + 1)).amount;
    return in_width((midnight ? 0 : afternoon_hour(hour, capitals)) * kMinutesPerHour + minutes, 4);
}

Number TIME2MIN(std::string_view text) {
    if (contains(text, "T")) return {kMinutesPerDay};
    const Number hour = numeric_value(text);
    const Number minutes = numeric_value(substring(text, 4));
    return {afternoon_hour(hour.amount, upper(text)) * kMinutesPerHour + minutes.amount,
            std::max(hour.width, minutes.width), std::max(hour.decimals, minutes.decimals)};
}

std::string MIN2AMPM(const Number& minutes) {
    return minutes.amount == kMinutesPerDay ? "TO-DO " : twelve_hour_text(minutes);
}

std::string AMPM(std::string_view text) {
    if (begins_with(text, "T")) return "TO-DO ";
    if (begins_with(text, kTwoBlanks)) return " ";
    const double hour = numeric_value(text).amount;
    return hour_text(hour).append(substring(text, 3, 3)) + (hour > 11 ? "p" : "a");
}

std::string AMPMTO24(std::string_view text) {
    if (contains(upper(text), "T")) return "TO-DO";
    if (begins_with(text, kTwoBlanks)) return std::string(5, ' ');
    const std::string small = lower(text);
    const std::string_view minutes = substring(small, position(":", small) + 1, 2);
    const double hour = afternoon_hour(numeric_value(small).amount, upper(text));
    return in_width(hour, 2).append(":").append(minutes);
}

std::string HOURSTEXT(Session& session, std::optional<Number> hours) {
    WorkAreas& areas = session.areas;
    const Number given =
        hours ? *hours : areas.field(areas.area_of("EVENTS"), "DURATION").number_form();
    const double whole = std::trunc(given.amount);
    const double fraction = given.amount - whole;
    std::string text;
    if (given.amount >= 1) {
        text = counted(trimmed_number({whole, given.width}), " hour", given.amount >= 2);
        if (fraction != 0) text += " and ";
    }
    const double minutes = fraction * kMinutesPerHour;
    return fraction > 0 ? text + counted(trimmed_number({minutes, 3}), " minute", minutes >= 2)
                        : text;
}

}  // namespace brenik
