// The routines that need no table: casting, array byte strings, dates, times of day, stamps,
// counters, the error report and the wait.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "RSData/stamps.h"
#include "c_source/Dates.h"
#include "c_source/Misc.h"
#include "c_source/MiscFW.h"
#include "c_source/Strings.h"
#include "c_source/Time.h"
#include "fake_engine.h"
#include "util/runtime.h"

namespace brenik {
namespace {

using namespace std::string_literals;

using fake::Rows;
using Texts = std::vector<std::string>;

Date day(const char* ymd) { return Date::from_ymd(ymd); }

// Four bytes, the first the highest.
std::string stamp(std::uint32_t bytes) {
    std::string text(4, '\0');
    for (char& byte : text) byte = static_cast<char>(std::exchange(bytes, bytes << 8) >> 24);
    return text;
}

class Routines : public testing::Test {
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
    // Opens a table of one field and one record.
    void open(int area, const char* file, const FieldDescription& field, const Value& value) {
        engine_.tables[file] = {.fields = {field}, .record = {value}};
        session_.areas.select(area);
        session_.areas.open(file, {}, TableSharing::kShared);
    }

    fake::Engine engine_;
    fake::Clock clock_;
    fake::UserInterface ui_;
    Session session_{engine_, clock_, ui_};
};

TEST_F(Routines, EverySourceGivesWhatItsTargetCallsFor) {
    const std::string none = "D:  /  /  ";
    // Each source as C, N, D, L, M, A and c.
    const Rows<Value, Texts> cases = {
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
    for (const auto& [source, wanted] : cases) {
        Texts results;
        for (const char target : "CNDLMAc"s) results.push_back(shown(cast(source, target)));
        EXPECT_EQ(results, wanted) << shown(source);
    }
    EXPECT_EQ(cast(Number{9999999999}, 'M').text(), "9999999999");
    EXPECT_EQ(cast(Number{10000000000}, 'C').text(), "**********");
    EXPECT_EQ(cast("10000000000", 'N').number(), 1e10);
    for (const char* text : {"y", "Yes", "Y ", "TRUE", "", "11"}) {
        EXPECT_FALSE(cast(text, 'L').logical()) << text;
    }
}

TEST_F(Routines, DatesAreReadFromTextAndNumbers) {
    const Rows<Value, const char*> cases = {
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

TEST_F(Routines, ValuesShowAsTheirKindAndModeSay) {
    const Memo memo{"one\x8D\ntwo\r\n three*** private  "};
    for (const char* mode : {"", "y"}) EXPECT_EQ(CAST(memo, mode), "") << mode;
    EXPECT_EQ(CAST(memo), "");
    EXPECT_EQ(CAST(memo, "Yes"), "one two\r\n three*** private");
    EXPECT_EQ(CAST(memo, "P"), "one two\r\n three");
    EXPECT_EQ(CAST(Memo{"public \x8D\n "}, "P"), "public");
    EXPECT_EQ(CAST(Date(), std::nullopt, true), "00/00/00");
    EXPECT_EQ(CAST(Date::from_civil(2000, 1, 2), std::nullopt, true), "01/02/00");
    const Rows<Value, const char*> plain = {{"ab  ", "ab"},   {Memo{"ab "}, "ab"},
                                            {5, "5"},         {Date(), "        "},
                                            {true, "Y"},      {Number{1.5, 8, 2}, "1.50"},
                                            {Value(), "NIL"}, {Value::array({}), "{ ... }"}};
    for (const auto& [value, text] : plain) EXPECT_EQ(XTOC(value), text);
}

TEST_F(Routines, ArraysTravelThroughByteStrings) {
    EXPECT_EQ(A2STR(Value::array({"ab  ", 5, true})), "2A\3\0C\2\0ab\4\0N\1\0\065LT"s);
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

TEST_F(Routines, BrokenByteStringsGiveWhatCouldBeRead) {
    EXPECT_EQ(read("A\2\0C\2\0abLT"s), "A(C:ab)(L:Y)") << "the first version";
    EXPECT_EQ(read("2A\1\0C\3\0abc\5\0"s), "A(C:abc  )");
    for (const char* none : {"", "  \r\n ", "2", "2C\1\0x", "2A", "2A\xFF\xFF"}) {
        EXPECT_EQ(read(none), "A") << none;
    }
    const Rows<std::string, const char*> cases = {{"2A\1\0C\3\0abc\2\0"s, "A(C:ab)"},
                                                  {"2A\2\0LTC\5\0ab"s, "A(L:Y)!"},
                                                  {"2A\1\0C\xFF\xFF\0\0"s, "A(C:)"},
                                                  {"2A\2\0LFXT"s, "A(L:N)(U:)"},
                                                  {"2A\1\0C\3\0abc\2"s, "A!"},
                                                  {"2A\2\0LTN\5"s, "A(L:Y)!"},
                                                  {"2A\1\0D2003"s, "A!"}};
    for (const auto& [text, wanted] : cases) {
        EXPECT_EQ(read(text), wanted) << testing::PrintToString(text);
    }
    const std::string whole = A2STR(
        Value::array({"ab  ", -12, true, day("20031127"), Value::array({"x", Value()}), "end"}));
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

TEST_F(Routines, NestingIsWrittenToAnyDepthAndReadToThreeHundredLevels) {
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
        EXPECT_EQ(std::ranges::count(ui_.boxes, ": Too many recursions in STR2A!\r\n") != 0,
                  levels > kMaxArrayDepth);
    }
}

TEST_F(Routines, ErrorsBeepUnlessOnlyShown) {
    const Rows<const char*, const char*, bool, int, Texts> cases = {
        {"", "", true, 1, {}},
        {"", "", false, 1, {}},
        {"text", "T", false, 0, {"T: text"}},
        {"text", "", true, 1, {": text"}}};
    for (const auto& [text, title, beep, beeps, boxes] : cases) {
        ui_ = {};
        EXPECT_FALSE(ERRBEEP(ui_, text, title, beep));
        EXPECT_EQ(ui_.beeps, beeps) << text;
        EXPECT_EQ(ui_.boxes, boxes);
    }
}

TEST_F(Routines, CarryMonthsAndDays) {
    const Rows<int, int, int, const char*, const char*> cases = {
        {2, 30, 2003, "20030302", "20030228"},  {2, 29, 2004, "20040229", "20040229"},
        {2, 29, 1900, "19000301", "19000228"},  {0, 15, 2003, "20021215", "20021215"},
        {-11, 1, 2003, "20020101", "20020101"}, {-12, 1, 2003, "20011201", "20011201"},
        {-24, 1, 2003, "20001201", "20001201"}, {25, 31, 2003, "20050131", "20050131"},
        {12, 32, 2003, "20040101", "20031231"}, {3, 0, 2003, "20030228", "20030131"},
        {1, 366, 2004, "20041231", "20041130"}, {1, 1, 99, "19990101", "19990101"},
        {1, 1, 100, "01000101", "01000101"},    {0, 1, 100, "19991201", "19991201"},
        {13, 1, 3, "19040101", "19040101"},     {1, 1, -5, "18950101", "18950101"},
        {12, 31, 9999, "99991231", "99991231"}};
    for (const auto& [month, of_month, year, date, clamped] : cases) {
        EXPECT_EQ(MAKEDATE(month, of_month, year).to_ymd(), date) << month << "/" << of_month;
        EXPECT_EQ(MAKEDATE(month, of_month, year, true).to_ymd(), clamped) << month;
    }
    constexpr auto kLimit = std::numeric_limits<std::int64_t>::max();
    const std::int64_t outside[][3] = {{12, 32, 9999},         {13, 1, 9999},
                                       {1, 1, kLimit},         {1, -3000000, 99},
                                       {1, -kLimit - 1, 2003}, {kLimit, 1, 2003}};
    for (const auto& [month, of_month, year] : outside) {
        EXPECT_TRUE(MAKEDATE(month, of_month, year).empty()) << month << "/" << of_month;
        EXPECT_TRUE(MAKEDATE(month, of_month, year, true).empty()) << month;
    }
}

TEST_F(Routines, FindDaysAgesAndTheNextAnniversary) {
    clock_.today_ = day("20031127");
    const Rows<const char*, const char*, const char*> distances = {
        {"20031126", "1 days past", "November 26, 2003"},
        {"20031127", "Today", "November 27, 2003"},
        {"20041127", "366 days to go", "November 27, 2004"},
        {"        ", "", "No Date"},
        {"00050101", "730084 days past", "January 1,    5"},
        {"99991231", "2920513 days to go", "December 31, 9999"}};
    for (const auto& [date, away, words] : distances) {
        EXPECT_EQ(DAYSAWAY(session_, day(date)), away);
        EXPECT_EQ(DTOW(day(date)), words);
    }
    const Rows<const char*, const char*, int, const char*> ages = {
        {"20031127", "19601127", 43, "20031127"}, {"20031127", "19601126", 43, "20041126"},
        {"20031127", "19601128", 42, "20031128"}, {"20031127", "20991128", -97, "20031128"},
        {"20030228", "19600229", 42, "20030301"}, {"20030301", "19600229", 43, "20040229"},
        {"20040229", "19600229", 44, "20040229"}, {"20040301", "19600229", 44, "20050301"},
        {"20031127", "        ", 0, "20991231"},  {"99991231", "19600101", 8039, "        "},
    };
    for (const auto& [today, date, age, next] : ages) {
        clock_.today_ = day(today);
        EXPECT_EQ(AGE(session_, day(date)), age) << today << date;
        EXPECT_EQ(NEXTBDAY(session_, day(date)).to_ymd(), next) << today << date;
    }
    clock_.today_ = day("20041231");
    const Rows<Value, int> born = {{"19601127", 44}, {"11/27/60", 44}, {19601127, 44},
                                   {"never", 0},     {true, 0},        {Value(), 365}};
    for (const auto& [value, age] : born) EXPECT_EQ(AGE(session_, value), age);
    clock_.today_ = day("20040101");
    EXPECT_EQ(AGE(session_, Value()), 0);
}

TEST_F(Routines, ShowMinutesInTwelveHours) {
    const Rows<const char*, const char*, const char*> cases = {
        {"0", "      ", "12:00a"},      {"", "      ", "12:00a"},     {"540", " 9:00a", " 9:00a"},
        {"65", " 1:05a", " 1:05a"},     {"720", "12:00p", "12:00p"},  {"1439", "11:59p", "11:59p"},
        {"1440", " 0:00p", "TO-DO "},   {"1441", " 0:01p", " 0:01p"}, {"-5", "12:-5a", "12:-5a"},
        {"61.5x", " 1:1.a", " 1:1.a"},  {"TODO", "TO-DO ", "12:00a"}, {"todo", "      ", "12:00a"},
        {"  600 ", "10:00a", "10:00a"},
    };
    for (const auto& [minutes, from_text, from_number] : cases) {
        EXPECT_EQ(EVETIME2AP(minutes), from_text) << minutes;
        EXPECT_EQ(MIN2AMPM(numeric_value(minutes)), from_number) << minutes;
    }
    EXPECT_EQ(EVETIME2AP(std::string(400, '9')).size(), 6U) << "a number beyond all numbers";
}

TEST_F(Routines, ReadTwelveAndTwentyFourHourText) {
    const Rows<const char*, const char*, int, const char*> twelve = {
        {" 9:30p", "1290", 1290, "21:30"}, {"12:00A", "   0", 720, "12:00"},
        {"12:15a", "  15", 735, "12:15"},  {"12:30p", " 750", 750, "12:30"},
        {"11:59p", "1439", 1439, "23:59"}, {" 0:05a", "   5", 5, " 0:05"},
        {"9P", "1269", 1260, "21:9p"},     {"9:30p", "1290", 1260, "21:30"},
        {"TODO", "TODO", 1440, "TO-DO"},   {"todo", "TODO", 0, "TO-DO"},
        {"12T", " 732", 1440, "TO-DO"},    {"", "   0", 0, " 0:"},
        {"  :  ", "   0", 0, "     "},     {"99:99p", "6759", 6759, "**:99"},
    };
    for (const auto& [text, event, minutes, long_form] : twelve) {
        EXPECT_EQ(AP2EVETIME(text), event) << text;
        EXPECT_EQ(TIME2MIN(text).amount, minutes) << text;
        EXPECT_EQ(AMPMTO24(text), long_form) << text;
    }
    EXPECT_EQ(AP2EVETIME("999:00p"), "****");
    EXPECT_EQ(AMPMTO24("9:3P"), "21:3p") << "what follows the colon is in small letters";
    const Rows<const char*, const char*> twenty_four = {
        {"14:30", " 2:30p"}, {"00:05", "12:05a"}, {"12:00", "12:00p"}, {"11:59", "11:59a"},
        {"24:00", " 0:00p"}, {" 9:05", " 9:05a"}, {"TO-DO", "TO-DO "}, {"to-do", "12-doa"},
        {"     ", " "},      {"", "12a"},
    };
    for (const auto& [text, shown] : twenty_four) EXPECT_EQ(AMPM(text), shown) << text;
}

TEST_F(Routines, PutDurationsIntoWords) {
    const Rows<double, const char*> cases = {{1.5, "1 hour  and 30 minutes "},
                                             {2.75, "2 hours  and 45 minutes "},
                                             {1.99, "1 hour  and 59 minutes "},
                                             {9999999999, "9999999999 hours "},
                                             {1, "1 hour "},
                                             {2, "2 hours "},
                                             {0, ""},
                                             {-1.5, ""},
                                             {0.25, "15 minutes "},
                                             {1.0 / 60, "1 minute "},
                                             {0.001, "0 minute "}};
    for (const auto& [hours, words] : cases) {
        EXPECT_EQ(HOURSTEXT(session_, Number{hours, 12, 3}), words) << hours;
    }
    EXPECT_THROW(HOURSTEXT(session_), EngineFault) << "no events are open";
    open(kEventsArea, "EVENTS", {"DURATION", 'N', 5, 2}, Number{1.5, 5, 2});
    session_.areas.select(kNamesArea);
    EXPECT_EQ(HOURSTEXT(session_), "1 hour  and 30 minutes ");
}

TEST_F(Routines, StampsAreBigEndianDaysAndTwoSecondUnits) {
    const Rows<const char*, std::optional<double>, std::uint32_t> written = {
        {"19971231", 0, 0},           {"        ", 86399, 0},       {"19980101", {}, 0x10000},
        {"19980101", 1, 0x10000},     {"19980101", 2.99, 0x10001},  {"19980101", 131074, 0x10001},
        {"19980101", -5, 0x100FE},    {"19980101", 86401, 0x1A8C0}, {"19980101", 86399.99, 0x1A8BF},
        {"19980913", 512, 0x1000100}, {"21770605", 0, 0xFFFF0000}};
    for (const auto& [date, seconds, bytes] : written) {
        EXPECT_EQ(RSDT(day(date), seconds), stamp(bytes)) << date << " " << seconds.value_or(0);
    }
    const Rows<std::uint32_t, const char*> shown = {{0, "12:00a"},
                                                    {0x1A8BF, "01/01/98 11:59p"},
                                                    {0x13F48, "01/01/98  9:00a"},
                                                    {0x3C5460, "03/01/98 12:00p"},
                                                    {0x2001D, "01/02/98 12:00a"},
                                                    {0x2A8C0, "01/02/98 TO-DO "}};
    for (const auto& [bytes, text] : shown) EXPECT_EQ(CDT2STR(stamp(bytes)), text);
    EXPECT_EQ(CDT2STR("\0\2"s), "01/02/98 12:00a");

    // A stamp of this moment is never earlier than the last delta.
    clock_.now_ = 600;
    for (const auto& [delta, bytes] : {std::pair(400, 0x1012C), {40000, 0x14E20}}) {
        open(kSystemArea, "LAWSYS", {"TLASTDELTA", 'N', 5, 0}, delta);
        EXPECT_EQ(RSNOW(session_), stamp(static_cast<std::uint32_t>(bytes)));
    }
}

TEST(Counters, WriteAndReadFixedCountsOfDigits) {
    EXPECT_EQ(RSN2ADS(61), "0z");
    EXPECT_EQ(RSN2ADS(12345, 5), "003D7");
    EXPECT_EQ(RSN2ALPHA(27), "BB");
    for (const std::int64_t number : {0, 35, 36, 62, 3843, 916132831}) {
        EXPECT_EQ(RSADS2N(RSN2ADS(number, 5)), number);
        EXPECT_EQ(RSALPHA2N(RSN2ALPHA(number, 7)), number);
    }
    for (const std::int64_t number : {3844, -1}) EXPECT_THROW(RSN2ADS(number), EngineFault);
    EXPECT_THROW(RSN2ALPHA(676), EngineFault);
    EXPECT_EQ(RSADS2N(" 1"), -61) << "what is no digit counts as minus one";
    EXPECT_EQ(RSALPHA2N("Bb"), 25);
}

TEST_F(Routines, TextsAreStuffedByPosition) {
    EXPECT_EQ(MYSTUFF("abcdef", 3, 2, "XY"), "abXYef");
    EXPECT_EQ(MYSTUFF("abc", 2, 0, "X"), "aXbc");
    EXPECT_EQ(MYSTUFF("abc", 9, 2, "X"), "abcX");
    EXPECT_EQ(MYSTUFF("abc", 2, 99, ""), "a");
}

TEST_F(Routines, SleepEndsAfterItsTimeOrAtMidnight) {
    const Rows<double, double, double, double> cases = {{100, 0.25, 1, 101.25},
                                                        {100, 0.25, -1, 100.25},
                                                        {100, -10, 1000, 80},
                                                        {86399.75, 0.25, 1, 0.25},
                                                        {86399.75, 60, 86399, 119.75}};
    for (const auto& [start, step, seconds, end] : cases) {
        clock_.now_ = start - step;
        clock_.step_ = step;
        SLEEP(clock_, seconds);
        EXPECT_EQ(clock_.now_, end - step) << start << " for " << seconds;
    }
}

}  // namespace
}  // namespace brenik
