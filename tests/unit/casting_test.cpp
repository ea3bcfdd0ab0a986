// The shared helpers: casting, array byte strings, the error report and the wait.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "c_source/Misc.h"
#include "c_source/MiscFW.h"
#include "c_source/Strings.h"
#include "util/fault.h"

namespace brenik {
namespace {

using namespace std::string_literals;

class RecordingInterface : public platform::UserInterface {
  public:
    void message_box(const std::string& text, const std::string& title, platform::Icon) override {
        events.push_back(title + "|" + text);
    }
    void notice(const std::string&, const std::string&, int) override {}
    void beep() override { events.push_back("beep"); }
    void set_cursor(platform::Cursor) override {}

    std::vector<std::string> events;
};

class CastingTest : public testing::Test {
  protected:
    Value cast(const Value& value, char target, bool strict = false) {
        return CASTANY(ui_, value, target, strict);
    }
    // What a value is, in one line: its type letter and its text form.
    static std::string shown(const Value& value) {
        std::string text(1, value.type_code());
        if (value.kind() == ValueKind::kMemo) return text + ":" + value.text();
        if (value.kind() != ValueKind::kArray) return text + ":" + CAST(value);
        for (const Value& element : *value.array()) text += "(" + shown(element) + ")";
        return text;
    }

    RecordingInterface ui_;
};

TEST_F(CastingTest, EverySourceGivesWhatItsTargetCallsFor) {
    const Date day = Date::from_civil(2003, 11, 27);
    const std::string none = "D:  /  /  ";
    struct Case {
        Value source;
        std::vector<std::string> results;  // as C, N, D, L, M, A, Q and c
    };
    const std::vector<Case> cases = {
        {"1", {"C:1", "N:         1", none, "L:Y", "C:1", "A", "C:", "C:"}},
        {Memo{"T"}, {"M:T", "N:         0", none, "L:Y", "M:T", "A", "C:", "C:"}},
        {1,
         {"C:         1", "N:         1", "D:11/30/00", "L:Y", "C:         1", "C:", "C:", "C:"}},
        {Number{1.5, 6, 2},
         {"C:  1.50", "N:  1.50", "D:11/30/00", "L:N", "C:  1.50", "C:", "C:", "C:"}},
        {day,
         {"C:11/27/03", "N:         0", "D:11/27/03", "L:N", "C:11/27/03",
          "A(N:      2003)(N:        11)(N:        27)", "C:", "C:"}},
        {true, {"C:Y", "N:         0", none, "L:Y", "C:Y", "C:", "C:", "C:"}},
        {false, {"C:N", "N:         1", none, "L:N", "C:N", "C:", "C:", "C:"}},
        {Value::array({true}), {"C:2A\1\0LT"s, "C:", none, "L:N", "C:", "C:", "C:", "C:"}},
        {Value(), {"C:", "C:", none, "L:N", "C:", "C:", "C:", "C:"}}};
    constexpr std::string_view kTargets = "CNDLMAQc";
    for (const Case& c : cases) {
        for (std::size_t i = 0; i < kTargets.size(); ++i) {
            EXPECT_EQ(shown(cast(c.source, kTargets[i])), c.results[i])
                << shown(c.source) << " to " << kTargets[i];
        }
    }
    EXPECT_EQ(cast(Number{-999999999}, 'C').text(), "-999999999");
    EXPECT_EQ(cast(Number{9999999999}, 'M').text(), "9999999999");
    EXPECT_EQ(cast(Number{10000000000}, 'C').text(), "**********");
    EXPECT_EQ(cast("10000000000", 'N').number(), 1e10);
    for (const char* text : {"y", "Yes", "Y ", "TRUE", "true", "", "11"}) {
        EXPECT_FALSE(cast(text, 'L').logical()) << text;
    }
}

TEST_F(CastingTest, DatesAreReadFromTextAndNumbers) {
    struct Case {
        Value source;
        bool strict;
        const char* ymd;
    };
    for (const Case& c : {Case{"20031127", false, "20031127"},
                          {"20031127", true, "20031127"},
                          {"11/27/03", false, "19031127"},
                          {"11/27/03", true, "        "},
                          {"11/27/2003", false, "20031127"},
                          {"20031127 ", false, "        "},
                          {"abc", false, "        "},
                          {20031127, false, "20031127"},
                          {20031131, false, "20031201"},
                          {20030015, false, "20021215"},
                          {20040300, false, "20040229"},
                          {Number{99991231}, false, "99991231"},
                          {Number{99991232}, false, "        "},
                          {Number{1e300}, false, "18991130"},
                          {-5, false, "18941130"}}) {
        EXPECT_EQ(cast(c.source, 'D', c.strict).date().to_ymd(), c.ymd) << shown(c.source);
    }
}

TEST_F(CastingTest, MemosShowAsTheirModeSays) {
    const Memo memo{"one\x8D\ntwo\r\n three*** private  "};
    EXPECT_EQ(CAST(memo), "");
    EXPECT_EQ(CAST(memo, ""), "");
    EXPECT_EQ(CAST(memo, "y"), "");
    EXPECT_EQ(CAST(memo, "Yes"), "one two\r\n three*** private");
    EXPECT_EQ(CAST(memo, "P"), "one two\r\n three");
    EXPECT_EQ(CAST(Memo{"public \x8D\n "}, "P"), "public");
    EXPECT_EQ(CAST(Date(), std::nullopt, true), "00/00/00");
    EXPECT_EQ(CAST(Date::from_civil(2000, 1, 2), std::nullopt, true), "01/02/00");
}

TEST_F(CastingTest, ArraysTravelThroughByteStrings) {
    EXPECT_EQ(A2STR(Value::array({"ab  ", 5, true})),
              "2A\3\0C\2\0ab\4\0N\1\0"
              "5LT"s);
    const Value nested = Value::array(
        {Value(), Value::array(Array()),
         Value::array({Memo{"m \0 "s}, Value::array({false, Date()})}), Number{-12.5, 8, 2},
         Date::from_civil(2003, 11, 27), std::string(32767, ' '), ""});
    EXPECT_EQ(A2STR(STR2A(ui_, A2STR(nested))), A2STR(nested));
    EXPECT_EQ((*STR2A(ui_, A2STR(nested)))[5].text().size(), 32767u);
    EXPECT_EQ(shown(STR2A(ui_, "A\2\0C\2\0abLT"s)), "A(C:ab)(L:Y)") << "version 1";
    EXPECT_TRUE(ui_.events.empty());

    EXPECT_THROW(A2STR(Value::array({std::string(32768, 'x')})), EngineFault);
    EXPECT_THROW(A2STR(Value::array(Array(32768))), EngineFault);
    const Value circle = Value::array(Array());
    circle.array()->push_back(circle);
    EXPECT_THROW(A2STR(circle), EngineFault);
    circle.array()->clear();
}

TEST_F(CastingTest, BrokenByteStringsGiveWhatCouldBeRead) {
    const std::string too_short = "|STR2A ERROR! Less data than expected.";
    struct Case {
        std::string text;
        const char* shown;
        bool reported;
    };
    for (const Case& c : {Case{"", "A", false},
                          {"  \r\n ", "A", false},
                          {"2", "A", false},
                          {"2C\1\0x", "A", false},
                          {"2A", "A", false},
                          {"2A\xFF\xFF", "A", false},
                          {"2A\2\0LTC\5\0ab"s, "A(L:Y)", true},
                          {"2A\1\0C\xFF\xFF\0\0"s, "A(C:)", false},
                          {"2A\2\0LFXT"s, "A(L:N)(U:)", false},
                          {"2A\1\0C\3\0abc\5\0"s, "A(C:abc  )", false},
                          {"2A\1\0C\3\0abc\2\0"s, "A(C:ab)", false},
                          {"2A\1\0C\3\0abc\2"s, "A", true},
                          {"2A\2\0LTN\5"s, "A(L:Y)", true},
                          {"2A\1\0D2003"s, "A", true}}) {
        ui_.events.clear();
        EXPECT_EQ(shown(STR2A(ui_, c.text)), c.shown) << testing::PrintToString(c.text);
        EXPECT_EQ(ui_.events, c.reported ? std::vector<std::string>({"beep", too_short})
                                         : std::vector<std::string>());
    }
}

// A value of any kind; arrays get rarer with their depth.
Value random_value(std::mt19937& random, int depth) {
    const auto below = [&random](unsigned limit) { return static_cast<int>(random() % limit); };
    switch (below(depth > 6 ? 6 : 9)) {
        case 0:
            return {};
        case 1:
            return below(2) == 1;
        case 2:
            return Number{(below(2000000) - 1000000) / 100.0, 10, 2};
        case 3:
            return below(1000) == 0 ? Value(Date()) : Value(Date(1721426 + below(3652059)));
        case 4:
            return below(1 << 30) - (1 << 29);
        case 5: {
            std::string text(static_cast<std::size_t>(below(40)), ' ');
            for (char& c : text) c = static_cast<char>(below(2) == 0 ? ' ' : below(256));
            return text;
        }
        default: {
            Array elements(static_cast<std::size_t>(below(5)));
            for (Value& element : elements) element = random_value(random, depth + 1);
            return Value::array(elements);
        }
    }
}

TEST_F(CastingTest, AnyArrayComesBackAsItWas) {
    std::mt19937 random(5);
    for (int round = 0; round < 300; ++round) {
        const Value array = Value::array({random_value(random, 0), random_value(random, 0)});
        const std::string text = A2STR(array);
        EXPECT_EQ(shown(STR2A(ui_, text)), shown(array));
        EXPECT_TRUE(ui_.events.empty());
    }
}

TEST_F(CastingTest, CutByteStringsAreReportedWhereverTheyEnd) {
    const Value array = Value::array(
        {"ab  ", -12, true, Date::from_ymd("20031127"), Value::array({"x", Value()}), "end"});
    const std::string whole = A2STR(array);
    for (std::size_t size = 5; size < whole.size(); ++size) {
        ui_.events.clear();
        const std::string read = shown(STR2A(ui_, whole.substr(0, size)));
        EXPECT_LT(read.size(), shown(array).size()) << size;
        EXPECT_FALSE(ui_.events.empty()) << size;
    }
    std::mt19937 random(6);
    for (int round = 0; round < 4000; ++round) {
        std::string text = whole;
        for (int i = 0; i < 3; ++i) text[random() % text.size()] = static_cast<char>(random());
        ui_.events.clear();
        STR2A(ui_, text);  // whatever its lengths claim, it ends and stays inside the text
    }
}

TEST_F(CastingTest, NestingIsWrittenToAnyDepthAndReadToThreeHundredLevels) {
    for (const int levels : {kMaxArrayDepth, kMaxArrayDepth + 1, 400}) {
        ui_.events.clear();
        std::string text = "2";
        Value nested = Value::array({});
        for (int i = 1; i < levels; ++i) {
            text += "A\1\0"s;
            nested = Value::array({nested});
        }
        EXPECT_EQ(A2STR(nested), text + "A\0\0"s);
        ArrayReference array = STR2A(ui_, text + "A\0\0"s);
        int depth = 0;
        for (; array; ++depth) array = array->empty() ? nullptr : array->front().array();
        EXPECT_EQ(depth, std::min(levels, kMaxArrayDepth + 1));
        const bool reported = std::find(ui_.events.begin(), ui_.events.end(),
                                        "|Too many recursions in STR2A!\r\n") != ui_.events.end();
        EXPECT_EQ(reported, levels > kMaxArrayDepth);
    }
}

TEST_F(CastingTest, ErrorsBeepUnlessOnlyShown) {
    EXPECT_FALSE(ERRBEEP(ui_));
    EXPECT_FALSE(ERRBEEP(ui_, "", "", false));
    EXPECT_FALSE(ERRBEEP(ui_, "text", "title", false));
    EXPECT_FALSE(ERRBEEP(ui_, "text"));
    EXPECT_EQ(ui_.events,
              (std::vector<std::string>{"beep", "beep", "title|text", "beep", "|text"}));
}

// Each reading of the clock is one step later; 0 follows the end of the day.
class SteppingClock : public platform::Clock {
  public:
    SteppingClock(double start, double step) : now_(start), step_(step) {}
    platform::LocalDay today() override { return {2000, 1, 1}; }
    double seconds() override {
        const double now = now_;
        now_ += step_;
        if (now_ >= 86400) now_ -= 86400;
        return now;
    }
    double now_;

  private:
    double step_;
};

TEST(Sleep, EndsAfterItsTimeOrAtMidnight) {
    struct Case {
        double start, step, seconds, end;
    };
    for (const Case& c : {Case{100, 0.25, 1, 101.25},
                          {100, 0.25, 0, 100.25},
                          {100, 0.25, -1, 100.25},
                          {100, -10, 1000, 80},
                          {86399.75, 0.25, 1, 0.25},
                          {86399.75, 60, 86399, 119.75},
                          {1, 0.25, 1, 1.25}}) {
        SteppingClock clock(c.start, c.step);
        SLEEP(clock, c.seconds);
        EXPECT_EQ(clock.now_, c.end) << c.start << " for " << c.seconds;
    }
}

}  // namespace
}  // namespace brenik
