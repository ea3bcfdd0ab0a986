// The routines that need no table, where docs/reference/routines.md has no examples: damaged byte
// strings, the limits of texts and numbers, and what depends on the moment. A system test runs the
// examples.

#include <gtest/gtest.h>

#include <random>

#include "RSData/stamps.h"
#include "c_source/Dates.h"
#include "c_source/Misc.h"
#include "c_source/Strings.h"
#include "c_source/Time.h"
#include "stand_ins.h"
#include "tables.h"

namespace brenik {
namespace {

using namespace std::string_literals;

Date day(const char* ymd) { return Date::from_ymd(ymd); }

class Routines : public testing::Test {
  protected:
    fake::TableFolder folder_;
    local::LocalEngine engine_;
    fake::Clock clock_;
    fake::UserInterface ui_;
    Session session_{engine_, clock_, ui_};
};

TEST_F(Routines, ArraysTravelThroughByteStrings) {
    const Value nested =
        Value::array({Value(), Value::array(Array()),
                      Value::array({Memo{"m \0 "s}, Value::array({false, Date()})}),
                      Number{-12.5, 8, 2}, day("20031127"), std::string(32767, ' '), ""});
    EXPECT_EQ(A2STR(STR2A(ui_, A2STR(nested))), A2STR(nested));
    EXPECT_TRUE(ui_.boxes.empty());

    EXPECT_THROW(A2STR(Value::array({std::string(32768, 'x')})), EngineFault);
    EXPECT_THROW(A2STR(Value::array(Array(32768))), EngineFault);
    const Value circle = Value::array(Array());
    circle.array()->push_back(circle);
    EXPECT_THROW(A2STR(circle), EngineFault);
    circle.array()->clear();
}

TEST_F(Routines, BrokenByteStringsGiveWhatCouldBeRead) {
    const fake::Rows<std::string, Array, std::size_t> cases = {
        {"A\2\0C\2\0abLT"s, {"ab", true}, 0},  // the first version
        {"2A\1\0C\3\0abc\5\0"s, {"abc  "}, 0},
        {"2A\1\0C\3\0abc\2\0"s, {"ab"}, 0},
        {"2A\1\0C\xFF\xFF\0\0"s, {""}, 0},
        {"2A\2\0LFXT"s, {false, Value()}, 0},
        {"2A\2\0LTN\5"s, {true}, 1},
        {"2A\xFF\xFF", {}, 0},
        {"2C\1\0x"s, {}, 0}};
    for (const auto& [text, wanted, reports] : cases) {
        ui_ = {};
        EXPECT_EQ(A2STR(STR2A(ui_, text)), A2STR(Value::array(wanted)));
        EXPECT_EQ(ui_.boxes, std::vector(reports, ": STR2A ERROR! Less data than expected."s));
    }
    const std::string whole = A2STR(
        Value::array({"ab  ", -12, true, day("20031127"), Value::array({"x", Value()}), "end"}));
    for (std::size_t size = 5; size < whole.size(); ++size) {
        ui_ = {};
        STR2A(ui_, whole.substr(0, size));
        EXPECT_NE(ui_.beeps, 0) << size;
    }
    std::mt19937 random(6);
    for (int round = 0; round < 4000; ++round) {
        std::string text = whole;
        for (int i = 0; i < 3; ++i) text[random() % text.size()] = static_cast<char>(random());
        STR2A(ui_, text);  // whatever its lengths claim, it ends and stays inside the text
    }
}

TEST_F(Routines, ArraysAreReadToThreeHundredLevels) {
    for (const int levels : {kMaxArrayDepth, kMaxArrayDepth + 2}) {
        ui_ = {};
        std::string text = "2";
        for (int i = 1; i < levels; ++i) text += "A\1\0"s;
        text += "A\0\0"s;
        const bool whole = levels <= kMaxArrayDepth;
        EXPECT_EQ(A2STR(STR2A(ui_, text)) == text, whole);
        EXPECT_EQ(ui_.boxes.empty(), whole);
    }
}

TEST_F(Routines, NoNumberIsTooLarge) {
    constexpr auto kLimit = std::numeric_limits<std::int64_t>::max();
    EXPECT_TRUE(MAKEDATE(kLimit, 1, 2003).empty());
    EXPECT_TRUE(MAKEDATE(1, -kLimit - 1, 2003).empty());
    EXPECT_TRUE(MAKEDATE(1, 1, kLimit).empty());
    EXPECT_EQ(CASTANY(ui_, Number{200311275}, 'D').date(), day("20031127"));
    EXPECT_EQ(CASTANY(ui_, Number{1e300}, 'D').date(), day("18991130"));
    EXPECT_EQ(CASTANY(ui_, Number{10000000000}, 'C').text(), "**********");
    EXPECT_EQ(EVETIME2AP(std::string(400, '9')).size(), 6U);
    EXPECT_THROW(RSN2ADS(-1), EngineFault);
}

TEST_F(Routines, CountFromToday) {
    clock_.today_ = day("20031127");
    EXPECT_EQ(DAYSAWAY(session_, day("20031126")), "1 days past");
    EXPECT_EQ(DAYSAWAY(session_, day("20031127")), "Today");
    const fake::Rows<const char*, const char*, int, const char*> ages = {
        {"20031127", "19601127", 43, "20031127"}, {"20031127", "19601126", 43, "20041126"},
        {"20031127", "19601128", 42, "20031128"}, {"20030228", "19600229", 42, "20030301"},
        {"20030301", "19600229", 43, "20040229"}, {"99991231", "19600101", 8039, "        "}};
    for (const auto& [today, date, age, next] : ages) {
        clock_.today_ = day(today);
        EXPECT_EQ(AGE(session_, day(date)), age) << today << date;
        EXPECT_EQ(NEXTBDAY(session_, day(date)).to_ymd(), next) << today << date;
    }
    EXPECT_EQ(AGE(session_), 364) << "without a date, the days since 1 January";
}

TEST_F(Routines, AStampOfNowIsNeverEarlierThanTheLastDelta) {
    clock_.now_ = 600;
    folder_.make("LAWSYS", {{"TLASTDELTA", 'N', 5}}, {}, {{40000}});
    session_.areas.select(kSystemArea);
    session_.areas.open(folder_.path("LAWSYS"), {}, TableSharing::kShared);
    EXPECT_EQ(RSNOW(session_), "\0\1\x4E\x20"s);
}

TEST_F(Routines, SleepEndsAfterItsTimeOrAtMidnight) {
    clock_.step_ = 0.25;
    for (const auto& [start, end] : {std::pair(100.0, 101.25), {86399.75, 0.25}}) {
        clock_.now_ = start - clock_.step_;
        SLEEP(clock_, 1);
        EXPECT_EQ(clock_.now_, end - clock_.step_) << start;
    }
}

}  // namespace
}  // namespace brenik
