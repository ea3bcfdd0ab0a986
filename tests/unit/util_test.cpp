// Numbers and dates, as they are shown and read.

#include "util/runtime.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace brenik {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

TEST(Numbers, AreShownAsAPersonWouldRoundThem) {
    const std::tuple<double, int, int, const char*> cases[] = {
        {5, 10, 0, "         5"},  {-2.5, 4, 0, "  -3"},
        {1.005, 6, 2, "  1.01"},   {-1.005, 6, 2, " -1.01"},
        {-0.004, 6, 2, "  0.00"},  {0.25, 3, 2, ".25"},
        {5e-324, 5, 3, "0.000"},   {9.99, 3, 1, ""},
        {1e300, 20, 2, ""},        {1, 2, 2, ""},
        {std::nan(""), 10, 2, ""}, {-kInfinity, 10, 0, ""}};
    for (const auto& [amount, width, decimals, text] : cases) {
        EXPECT_EQ(fixed_text(amount, width, decimals), text) << amount;
    }
}

TEST(Numbers, AreReadFromTheFrontOfText) {
    const std::string nines = "-" + std::string(100'000, '9');
    const std::string tiny = "." + std::string(1000, '0') + "1";
    const std::tuple<std::string, double, int, int> cases[] = {
        {"", 0, 10, 0},
        {"  42abc", 42, 10, 0},
        {"-3.250 ", -3.25, 10, 3},
        {"+.5.5", 0.5, 10, 1},
        {"1e5", 1, 10, 0},
        {tiny, 0, 1002, 1001},
        {nines, -kInfinity, 100'001, 0},
        {"123456789012", 123456789012.0, 12, 0}};
    for (const auto& [text, amount, width, decimals] : cases) {
        const Number number = numeric_value(text);
        EXPECT_EQ(std::tie(number.amount, number.width, number.decimals),
                  std::tie(amount, width, decimals))
            << text.substr(0, 20);
    }
    EXPECT_FALSE(std::signbit(numeric_value("-0").amount));
}

TEST(Dates, EveryDayOfTheCalendarGoesThereAndBack) {
    EXPECT_EQ(Date::from_civil(2000, 1, 1).julian_day(), 2451545);
    const std::int32_t last = Date::from_civil(9999, 12, 31).julian_day();
    for (std::int32_t day = Date::from_civil(1, 1, 1).julian_day(); day <= last; ++day) {
        const CivilDay parts = Date(day).civil();
        ASSERT_EQ(Date::from_civil(parts.year, parts.month, parts.day).julian_day(), day);
    }
    for (const std::int32_t outside : {0, -1, last + 1, std::numeric_limits<std::int32_t>::min()}) {
        EXPECT_EQ(Date(outside).to_ymd() + Date(outside).to_mdy(), "          /  /  ");
    }
}

TEST(Dates, OnlyTrueDaysAreRead) {
    const std::pair<const char*, const char*> cases[] = {
        {"11/27/03", "19031127"}, {"1/2/2003 ", "20030102"}, {"02/29/2000", "20000229"},
        {"02/29/00", "        "}, {"13/01/03", "        "},  {"1/2/3/4", "        "},
        {"20031127", "        "}, {"+1/02/03", "        "},
    };
    for (const auto& [text, ymd] : cases) EXPECT_EQ(Date::from_mdy(text).to_ymd(), ymd) << text;
    for (const char* text :
         {"20030229", "2003112", "200311271", "20031x27", "00000101", "        "}) {
        EXPECT_TRUE(Date::from_ymd(text).empty()) << text;
    }
}

}  // namespace
}  // namespace brenik
