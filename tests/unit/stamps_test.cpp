// Change stamps and the counters, down to their bytes.

#include "RSData/stamps.h"

#include <gtest/gtest.h>

#include "fake_engine.h"

namespace brenik {
namespace {

class Stamps : public testing::Test {
  protected:
    // Opens a system table whose only field is TLASTDELTA.
    void open_system_table(int last_delta) {
        engine_.tables["LAWSYS"] = {.fields = {{"TLASTDELTA", 'N', 5, 0}}, .record = {last_delta}};
        session_.areas.select(kSystemArea);
        session_.areas.open("LAWSYS", {}, TableSharing::kShared);
    }

    fake::Engine engine_;
    fake::Clock clock_;
    fake::UserInterface ui_;
    Session session_{engine_, clock_, ui_};
};

std::string bytes(std::initializer_list<int> values) {
    std::string text;
    for (const int value : values) text += static_cast<char>(value);
    return text;
}

TEST_F(Stamps, AreBigEndianDaysAndTwoSecondUnits) {
    const struct {
        const char* day;
        std::optional<double> seconds;
        std::string stamp;
    } cases[] = {
        {"19971231", 0, bytes({0, 0, 0, 0})},      {"19980101", 1, bytes({0, 1, 0, 0})},
        {"19980101", 2.99, bytes({0, 1, 0, 1})},   {"19980101", 86399.99, bytes({0, 1, 168, 191})},
        {"19980101", {}, bytes({0, 1, 0, 0})},     {"19980913", 512, bytes({1, 0, 1, 0})},
        {"21770605", 0, bytes({255, 255, 0, 0})},  {"        ", 86399, bytes({0, 0, 0, 0})},
        {"19980101", -5, bytes({0, 1, 0, 254})},   {"19980101", 86401, bytes({0, 1, 168, 192})},
        {"19980101", 131074, bytes({0, 1, 0, 1})},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(RSDT(Date::from_ymd(c.day), c.seconds), c.stamp) << c.day;
    }
}

TEST_F(Stamps, OfThisMomentAreNeverEarlierThanTheLastDelta) {
    clock_.now_ = 600;
    open_system_table(400);
    EXPECT_EQ(RSNOW(session_), bytes({0, 1, 1, 44}));
    open_system_table(40000);
    EXPECT_EQ(RSNOW(session_), bytes({0, 1, 0x4E, 0x20}));
}

TEST_F(Stamps, ReadAsDateAndTwelveHourTime) {
    const std::pair<std::string, const char*> cases[] = {
        {bytes({0, 1, 16200 / 256, 16200 % 256}), "01/01/98  9:00a"},
        {bytes({0, 0, 0, 0}), "12:00a"},
        {bytes({0, 1, 168, 191}), "01/01/98 11:59p"},
        {bytes({0, 60, 21600 / 256, 21600 % 256}), "03/01/98 12:00p"},
        {bytes({0, 2, 0, 29}), "01/02/98 12:00a"},
        {bytes({0, 2}), "01/02/98 12:00a"},
        {bytes({0, 2, 43200 / 256, 43200 % 256}), "01/02/98 TO-DO "},
    };
    for (const auto& [stamp, text] : cases) EXPECT_EQ(CDT2STR(stamp), text);
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

TEST(Texts, AreStuffedByPosition) {
    EXPECT_EQ(MYSTUFF("abcdef", 3, 2, "XY"), "abXYef");
    EXPECT_EQ(MYSTUFF("abc", 2, 0, "X"), "aXbc");
    EXPECT_EQ(MYSTUFF("abc", 9, 2, "X"), "abcX");
    EXPECT_EQ(MYSTUFF("abc", 2, 99, ""), "a");
}

TEST(Texts, ShowValuesOfEveryKind) {
    const std::pair<Value, const char*> cases[] = {
        {"ab  ", "ab"},   {Memo{"ab "}, "ab"},
        {5, "5"},         {Date(), "        "},
        {true, "Y"},      {Number{1.5, 8, 2}, "1.50"},
        {Value(), "NIL"}, {Value::array(Array{}), "{ ... }"},
    };
    for (const auto& [value, text] : cases) EXPECT_EQ(XTOC(value), text);
}

}  // namespace
}  // namespace brenik
