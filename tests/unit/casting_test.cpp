// The shared helpers: casting, array byte strings, the error report and the wait.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "c_source/Misc.h"
#include "c_source/MiscFW.h"
#include "c_source/Strings.h"
#include "fake_engine.h"
#include "util/fault.h"

namespace brenik {
namespace {

using namespace std::string_literals;

using Texts = std::vector<std::string>;

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
    // What an array string holds, with a mark for each report that it is broken.
    std::string read(const std::string& text) {
        ui_ = {};
        const std::string result = shown(STR2A(ui_, text));
        const std::size_t reports = ui_.boxes.size();
        EXPECT_EQ(ui_.boxes, Texts(reports, ": STR2A ERROR! Less data than expected."));
        EXPECT_EQ(ui_.beeps, static_cast<int>(reports));
        return result + std::string(reports, '!');
    }

    fake::UserInterface ui_;
};

TEST_F(CastingTest, EverySourceGivesWhatItsTargetCallsFor) {
    const std::string none = "D:  /  /  ";
    struct Case {
        Value source;
        Texts results;  // as C, N, D, L, M, A and c
    };
    const std::vector<Case> cases = {
        {"1", {"C:1", "N:         1", none, "L:Y", "C:1", "A", "C:"}},
        {Memo{"T"}, {"M:T", "N:         0", none, "L:Y", "M:T", "A", "C:"}},
        {1, {"C:         1", "N:         1", "D:11/30/00", "L:Y", "C:         1", "C:", "C:"}},
        {Number{1.5, 6, 2}, {"C:  1.50", "N:  1.50", "D:11/30/00", "L:N", "C:  1.50", "C:", "C:"}},
        {Date::from_civil(2003, 11, 27),
         {"C:11/27/03", "N:         0", "D:11/27/03", "L:N", "C:11/27/03",
          "A(N:      2003)(N:        11)(N:        27)", "C:"}},
        {true, {"C:Y", "N:         0", none, "L:Y", "C:Y", "C:", "C:"}},
        {false, {"C:N", "N:         1", none, "L:N", "C:N", "C:", "C:"}},
        {Value::array({true}), {"C:2A\1\0LT"s, "C:", none, "L:N", "C:", "C:", "C:"}},
        {Value(), {"C:", "C:", none, "L:N", "C:", "C:", "C:"}}};
    for (const Case& c : cases) {
        Texts results;
        for (const char target : "CNDLMAc"s) results.push_back(shown(cast(c.source, target)));
        EXPECT_EQ(results, c.results) << shown(c.source);
    }
    EXPECT_EQ(cast(Number{9999999999}, 'M').text(), "9999999999");
    EXPECT_EQ(cast(Number{10000000000}, 'C').text(), "**********");
    EXPECT_EQ(cast("10000000000", 'N').number(), 1e10);
    for (const char* text : {"y", "Yes", "Y ", "TRUE", "", "11"}) {
        EXPECT_FALSE(cast(text, 'L').logical()) << text;
    }
}

TEST_F(CastingTest, DatesAreReadFromTextAndNumbers) {
    const std::pair<Value, const char*> cases[] = {
        {"20031127", "20031127"},    {"11/27/03", "19031127"}, {"11/27/2003", "20031127"},
        {"20031127 ", "        "},   {20031127, "20031127"},   {20031131, "20031201"},
        {20030015, "20021215"},      {20040300, "20040229"},   {99991232, "        "},
        {Number{1e300}, "18991130"}, {-5, "18941130"},
    };
    for (const auto& [source, ymd] : cases) {
        EXPECT_EQ(cast(source, 'D').date().to_ymd(), ymd) << shown(source);
    }
    EXPECT_EQ(cast("20031127", 'D', true).date().to_ymd(), "20031127");
    EXPECT_TRUE(cast("11/27/03", 'D', true).date().empty());
}

TEST_F(CastingTest, MemosShowAsTheirModeSays) {
    const Memo memo{"one\x8D\ntwo\r\n three*** private  "};
    for (const char* mode : {"", "y"}) EXPECT_EQ(CAST(memo, mode), "") << mode;
    EXPECT_EQ(CAST(memo), "");
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
    EXPECT_TRUE(ui_.boxes.empty());

    EXPECT_THROW(A2STR(Value::array({std::string(32768, 'x')})), EngineFault);
    EXPECT_THROW(A2STR(Value::array(Array(32768))), EngineFault);
    const Value circle = Value::array(Array());
    circle.array()->push_back(circle);
    EXPECT_THROW(A2STR(circle), EngineFault);
    circle.array()->clear();
}

TEST_F(CastingTest, BrokenByteStringsGiveWhatCouldBeRead) {
    const std::pair<std::string, const char*> cases[] = {
        {"", "A"},
        {"  \r\n ", "A"},
        {"2", "A"},
        {"2C\1\0x", "A"},
        {"2A", "A"},
        {"2A\xFF\xFF", "A"},
        {"A\2\0C\2\0abLT"s, "A(C:ab)(L:Y)"},  // the first version
        {"2A\2\0LTC\5\0ab"s, "A(L:Y)!"},
        {"2A\1\0C\xFF\xFF\0\0"s, "A(C:)"},
        {"2A\2\0LFXT"s, "A(L:N)(U:)"},
        {"2A\1\0C\3\0abc\5\0"s, "A(C:abc  )"},
        {"2A\1\0C\3\0abc\2\0"s, "A(C:ab)"},
        {"2A\1\0C\3\0abc\2"s, "A!"},
        {"2A\2\0LTN\5"s, "A(L:Y)!"},
        {"2A\1\0D2003"s, "A!"},
    };
    for (const auto& [text, wanted] : cases) {
        EXPECT_EQ(read(text), wanted) << testing::PrintToString(text);
    }
    const std::string whole = A2STR(Value::array(
        {"ab  ", -12, true, Date::from_ymd("20031127"), Value::array({"x", Value()}), "end"}));
    for (std::size_t size = 5; size < whole.size(); ++size) {
        EXPECT_EQ(read(whole.substr(0, size)).back(), '!') << size;
    }
    std::mt19937 random(6);
    for (int round = 0; round < 4000; ++round) {
        std::string text = whole;
        for (int i = 0; i < 3; ++i) text[random() % text.size()] = static_cast<char>(random());
        STR2A(ui_, text);  // whatever its lengths claim, it ends and stays inside the text
    }
}

TEST_F(CastingTest, NestingIsWrittenToAnyDepthAndReadToThreeHundredLevels) {
    for (const int levels : {kMaxArrayDepth, kMaxArrayDepth + 1, 400}) {
        ui_.boxes.clear();
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
        const bool reported =
            std::ranges::count(ui_.boxes, ": Too many recursions in STR2A!\r\n") != 0;
        EXPECT_EQ(reported, levels > kMaxArrayDepth);
    }
}

TEST_F(CastingTest, ErrorsBeepUnlessOnlyShown) {
    const struct {
        const char *text, *title;
        bool beep;
        int beeps;
        Texts boxes;
    } cases[] = {
        {"", "", true, 1, {}},
        {"", "", false, 1, {}},
        {"text", "title", false, 0, {"title: text"}},
        {"text", "", true, 1, {": text"}},
    };
    for (const auto& c : cases) {
        ui_ = {};
        EXPECT_FALSE(ERRBEEP(ui_, c.text, c.title, c.beep));
        EXPECT_EQ(ui_.beeps, c.beeps) << c.text << c.beep;
        EXPECT_EQ(ui_.boxes, c.boxes);
    }
}

// Each reading of the clock is one step later; 0 follows the end of the day.
class SteppingClock : public fake::Clock {
  public:
    SteppingClock(double start, double step) : step_(step) { now_ = start; }
    double seconds() override {
        const double now = now_;
        now_ += now_ + step_ < 86400 ? step_ : step_ - 86400;
        return now;
    }

  private:
    double step_;
};

TEST(Sleep, EndsAfterItsTimeOrAtMidnight) {
    const struct {
        double start, step, seconds, end;
    } cases[] = {
        {100, 0.25, 1, 101.25},    {100, 0.25, -1, 100.25},       {100, -10, 1000, 80},
        {86399.75, 0.25, 1, 0.25}, {86399.75, 60, 86399, 119.75},
    };
    for (const auto& c : cases) {
        SteppingClock clock(c.start, c.step);
        SLEEP(clock, c.seconds);
        EXPECT_EQ(clock.now_, c.end) << c.start << " for " << c.seconds;
    }
}

}  // namespace
}  // namespace brenik
