// Values, dates and the runtime functions at their edges.

#include "util/runtime.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace brenik {
namespace {

using namespace std::string_literals;

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
    EXPECT_EQ(number_text(Number{12345678901.0}), "**********");
    EXPECT_EQ(number_text(Number{std::nan("")}, 3, 1), "***");
    EXPECT_EQ(number_text(Number{1.5, 400, 300}).size(), 400u);
    EXPECT_EQ(trimmed_number(Number{5}), "5");
}

TEST(Numbers, AreReadFromTheFrontOfText) {
    const std::string nines = "-" + std::string(100'000, '9');
    const std::string tiny = "." + std::string(1000, '0') + "1";
    const std::tuple<std::string, double, int, int> cases[] = {
        {"", 0, 10, 0},
        {"-", 0, 10, 0},
        {"  42abc", 42, 10, 0},
        {"-3.250 ", -3.25, 10, 3},
        {"+.5.5", 0.5, 10, 1},
        {"1e5", 1, 10, 0},
        {"inf", 0, 10, 0},
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

TEST(Text, FunctionsHoldAtTheirEdges) {
    const std::pair<std::string, const char*> cases[] = {
        {std::string(trim_both("  a b\t ")), "a b\t"},
        {std::string(trim_both("    ")), ""},
        {pad_right("abc", 2), "ab"},
        {replace_all("aaa", "aa", "b"), "ba"},
        {replace_all("abc", "", "x"), "abc"},
        {upper("a\xE9z"), "A\xE9Z"},
        {std::string(substring("abc", 4)), ""},
        {std::string(substring("abc", 2, 9)), "bc"},
        {int16_text(-2), "\xFE\xFF"},
        {int16_text(65536 + 513), "\x01\x02"}};
    for (const auto& [result, wanted] : cases) EXPECT_EQ(result, wanted);
    EXPECT_EQ(position("a", "ABC"), 0u);
    EXPECT_EQ(position("C", "ABC"), 3u);
    EXPECT_TRUE(begins_with("abc", ""));
    EXPECT_FALSE(begins_with("ab", "abc"));
    EXPECT_EQ(int16_from_text("\xFE\xFFzzz"), -2);
    EXPECT_EQ(int16_from_text("\x07"), 7);
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

TEST(Values, EmptinessAndEqualityFollowTheKind) {
    const Value none[] = {Value(),
                          false,
                          0,
                          "",
                          " \t\r\n",
                          Memo{" "},
                          Date(),
                          Value::array(Array()),
                          Value(ArrayReference())};
    for (const Value& value : none) EXPECT_TRUE(value.empty()) << value.type_code();
    const Value full[] = {true, -1, "\0\0\0\0"s, "x", Date(1), Value::array({Value()})};
    for (const Value& value : full) EXPECT_FALSE(value.empty()) << value.type_code();

    EXPECT_TRUE(Value("a").exactly_equals(Memo{"a"}));
    EXPECT_FALSE(Value("a").exactly_equals("a "));
    EXPECT_TRUE(Value(Number{5, 10, 0}).exactly_equals(Number{5, 3, 2}));
    EXPECT_FALSE(Value(0).exactly_equals(false));
    const Value array = Value::array({1});
    EXPECT_TRUE(array.exactly_equals(Value(array)));
    EXPECT_FALSE(array.exactly_equals(Value::array({1})));

    EXPECT_EQ(Value(Number{-1.9}).whole(), -1);
    EXPECT_EQ(Value(Number{1e300}).whole(), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(Value(Number{-kInfinity}).whole(), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(Value(Number{std::nan("")}).whole(), 0);
}

}  // namespace
}  // namespace brenik
