// Dates, ages and times of day, with their corners.

#include <gtest/gtest.h>

#include "c_source/Dates.h"
#include "c_source/Time.h"
#include "fake_engine.h"
#include "util/runtime.h"

namespace brenik {
namespace {

class Calendar : public fake::Clock {
  public:
    platform::LocalDay today() override {
        const CivilDay day = Date::from_ymd(today_).civil();
        return {day.year, day.month, day.day};
    }
    std::string today_ = "20031127";
};

class DatesAndTimes : public testing::Test {
  protected:
    fake::Engine engine_;
    Calendar clock_;
    fake::UserInterface ui_;
    Session session_{engine_, clock_, ui_};
};

TEST_F(DatesAndTimes, CarryMonthsAndDays) {
    constexpr auto kLimit = std::numeric_limits<std::int64_t>::max();
    const std::string none = "        ";
    const struct {
        std::int64_t month, day, year;
        std::string date, clamped;
    } cases[] = {
        {2, 30, 2003, "20030302", "20030228"},
        {2, 29, 2004, "20040229", "20040229"},
        {2, 29, 1900, "19000301", "19000228"},
        {13, 1, 3, "19040101", "19040101"},
        {0, 15, 2003, "20021215", "20021215"},
        {-11, 1, 2003, "20020101", "20020101"},
        {-12, 1, 2003, "20011201", "20011201"},
        {-24, 1, 2003, "20001201", "20001201"},
        {25, 31, 2003, "20050131", "20050131"},
        {12, 32, 2003, "20040101", "20031231"},
        {3, 0, 2003, "20030228", "20030131"},
        {1, 366, 2004, "20041231", "20041130"},
        {1, 1, 99, "19990101", "19990101"},
        {1, 1, 100, "01000101", "01000101"},
        {0, 1, 100, "19991201", "19991201"},
        {1, 1, -5, "18950101", "18950101"},
        {12, 31, 9999, "99991231", "99991231"},
        {12, 32, 9999, none, none},
        {13, 1, 9999, none, none},
        {1, -3000000, 2003, none, none},
        {kLimit, 1, 2003, none, none},
        {1, -kLimit - 1, 2003, none, none},
        {1, 1, kLimit, none, none},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(MAKEDATE(c.month, c.day, c.year).to_ymd(), c.date) << c.month << "/" << c.day;
        EXPECT_EQ(MAKEDATE(c.month, c.day, c.year, true).to_ymd(), c.clamped) << c.month;
    }
}

TEST_F(DatesAndTimes, CountDaysFromTodayAndWriteThemOut) {
    const struct {
        const char *date, *away, *words;
    } cases[] = {
        {"20031127", "Today", "November 27, 2003"},
        {"20031126", "1 days past", "November 26, 2003"},
        {"20041127", "366 days to go", "November 27, 2004"},
        {"        ", "", "No Date"},
        {"00050101", "730084 days past", "January 1,    5"},
        {"99991231", "2920513 days to go", "December 31, 9999"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(DAYSAWAY(session_, Date::from_ymd(c.date)), c.away);
        EXPECT_EQ(DTOW(Date::from_ymd(c.date)), c.words);
    }
}

TEST_F(DatesAndTimes, FindAgesAndTheNextAnniversary) {
    const struct {
        const char *today, *date;
        std::int64_t age;
        const char* next;
    } cases[] = {
        {"20031127", "19601127", 43, "20031127"}, {"20031127", "19601126", 43, "20041126"},
        {"20031127", "19601128", 42, "20031128"}, {"20031127", "20991128", -97, "20031128"},
        {"20030228", "19600229", 42, "20030301"}, {"20030301", "19600229", 43, "20040229"},
        {"20040229", "19600229", 44, "20040229"}, {"20040301", "19600229", 44, "20050301"},
        {"20031127", "        ", 0, "20991231"},  {"99991231", "19600101", 8039, "        "},
    };
    for (const auto& c : cases) {
        clock_.today_ = c.today;
        EXPECT_EQ(AGE(session_, Date::from_ymd(c.date)), c.age) << c.today << c.date;
        EXPECT_EQ(NEXTBDAY(session_, Date::from_ymd(c.date)).to_ymd(), c.next) << c.today << c.date;
    }
    const std::pair<Value, int> others[] = {
        {"19601127", 44}, {"11/27/60", 44}, {19601127, 44}, {"never", 0}, {true, 0}, {Value(), 365},
    };
    clock_.today_ = "20041231";
    for (const auto& [value, age] : others) EXPECT_EQ(AGE(session_, value), age);
    clock_.today_ = "20040101";
    EXPECT_EQ(AGE(session_, Value()), 0);
}

TEST_F(DatesAndTimes, ShowMinutesInTwelveHours) {
    const struct {
        const char *minutes, *from_text, *from_number;
    } cases[] = {
        {"0", "      ", "12:00a"},      {"", "      ", "12:00a"},     {"540", " 9:00a", " 9:00a"},
        {"65", " 1:05a", " 1:05a"},     {"720", "12:00p", "12:00p"},  {"1439", "11:59p", "11:59p"},
        {"1440", " 0:00p", "TO-DO "},   {"1441", " 0:01p", " 0:01p"}, {"-5", "12:-5a", "12:-5a"},
        {"61.5x", " 1:1.a", " 1:1.a"},  {"TODO", "TO-DO ", "12:00a"}, {"todo", "      ", "12:00a"},
        {"  600 ", "10:00a", "10:00a"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(EVETIME2AP(c.minutes), c.from_text) << c.minutes;
        EXPECT_EQ(MIN2AMPM(numeric_value(c.minutes)), c.from_number) << c.minutes;
    }
    EXPECT_EQ(EVETIME2AP(std::string(400, '9')).size(), 6U) << "a number beyond all numbers";
}

TEST_F(DatesAndTimes, ReadTwelveHourText) {
    const struct {
        const char *text, *event;
        double minutes;
        const char* long_form;
    } cases[] = {
        {" 9:30p", "1290", 1290, "21:30"}, {"12:00A", "   0", 720, "12:00"},
        {"12:15a", "  15", 735, "12:15"},  {"12:30p", " 750", 750, "12:30"},
        {"11:59p", "1439", 1439, "23:59"}, {" 0:05a", "   5", 5, " 0:05"},
        {"9P", "1269", 1260, "21:9p"},     {"9:30p", "1290", 1260, "21:30"},
        {"TODO", "TODO", 1440, "TO-DO"},   {"todo", "TODO", 0, "TO-DO"},
        {"12T", " 732", 1440, "TO-DO"},    {"", "   0", 0, " 0:"},
        {"  :  ", "   0", 0, "     "},     {"99:99p", "6759", 6759, "**:99"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(AP2EVETIME(c.text), c.event) << c.text;
        EXPECT_EQ(TIME2MIN(c.text).amount, c.minutes) << c.text;
        EXPECT_EQ(AMPMTO24(c.text), c.long_form) << c.text;
    }
    EXPECT_EQ(AP2EVETIME("999:00p"), "****");
    EXPECT_EQ(AMPMTO24("9:3P"), "21:3p") << "what follows the colon is in small letters";
}

TEST_F(DatesAndTimes, ReadTwentyFourHourText) {
    const std::pair<const char*, const char*> cases[] = {
        {"14:30", " 2:30p"}, {"00:05", "12:05a"}, {"12:00", "12:00p"}, {"11:59", "11:59a"},
        {"24:00", " 0:00p"}, {" 9:05", " 9:05a"}, {"TO-DO", "TO-DO "}, {"to-do", "12-doa"},
        {"     ", " "},      {"", "12a"},
    };
    for (const auto& [text, shown] : cases) EXPECT_EQ(AMPM(text), shown) << text;
}

TEST_F(DatesAndTimes, PutDurationsIntoWords) {
    const std::pair<double, const char*> cases[] = {
        {0.25, "15 minutes "},
        {1, "1 hour "},
        {1.5, "1 hour  and 30 minutes "},
        {2, "2 hours "},
        {0, ""},
        {2.75, "2 hours  and 45 minutes "},
        {-1.5, ""},
        {1.0 / 60, "1 minute "},
        {1.99, "1 hour  and 59 minutes "},
        {0.001, "0 minute "},
        {9999999999, "9999999999 hours "},
    };
    for (const auto& [hours, words] : cases) {
        EXPECT_EQ(HOURSTEXT(session_, Number{hours, 12, 3}), words) << hours;
    }
    EXPECT_THROW(HOURSTEXT(session_), EngineFault) << "no events are open";
    engine_.tables["LAW2"] = {.fields = {{"DURATION", 'N', 5, 2}}, .record = {Number{1.5, 5, 2}}};
    session_.areas.select(kEventsArea);
    session_.areas.open("LAW2", "Events", TableSharing::kShared);
    session_.areas.select(kNamesArea);
    EXPECT_EQ(HOURSTEXT(session_), "1 hour  and 30 minutes ");
}

}  // namespace
}  // namespace brenik
