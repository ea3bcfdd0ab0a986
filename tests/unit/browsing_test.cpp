// Saved navigation states, the browser's skip, and the order, scope and filter helpers.

#include <gtest/gtest.h>

#include <limits>

#include "data/cmfun.h"
#include "data/cmxfun.h"
#include "data/savedbf.h"
#include "practice.h"

namespace brenik {
namespace {

constexpr int kPlainArea = 6;
constexpr int kRecords = 40;

class Browsing : public testing::Test {
  protected:
    // The records do not lie in the order of their keys.
    Browsing() {
        std::vector<Array> rows;
        for (int i = 0; i < kRecords; ++i) {
            const int number = i * 7 % kRecords;
            rows.push_back({"K" + std::to_string(100 + number), number});
        }
        for (const auto& [area, name] :
             {std::pair(kNotesArea, "NOTES"), {kPlainArea, "PLAIN"}, {kNamesArea, "PARENT"}}) {
            practice_.make(name, {{"K", 'C', 4}, {"N", 'N', 4}},
                           {{"K", "K"}, {"N", "N"}, {"BACK", "K", {}, false, false, true}}, rows);
            station_.open(area, name);
        }
        CMXSETRELATION(session_, kNotesArea, "K");
        table(kPlainArea).set_order(0);
        session_.areas.add_relation(kNamesArea, {kPlainArea, "RECNO()"});
    }

    Table& table(int area) { return session_.areas.table(area, "test"); }
    Table& parent() { return table(kNamesArea); }

    fake::Practice practice_;
    fake::Workstation station_{practice_};
    Session& session_ = station_.session;
};

TEST_F(Browsing, ComesBackToWhereItWasSaved) {
    const std::tuple<const char*, Value, Value, const char*, RecordNumber> states[] = {
        {"K", "K110", "K120", "N > 12", 12},
        {"BACK", "K130", Value(), "", 1},
        {"N", 5, Value(), "N < 30", 0},
        {"", Value(), Value(), "", kRecords}};
    std::vector<std::pair<std::string, std::size_t>> saved;
    for (const auto& [order, top, bottom, filter, record] : states) {
        set_order(parent(), order);
        if (*order != '\0') CMXSETSCOPE(session_, ScopeEnd::kTop, top);
        if (*order != '\0') CMXSETSCOPE(session_, ScopeEnd::kBottom, bottom);
        SETFILTER(session_, filter);
        parent().go_to(record);
        saved.emplace_back(A2STR(SAVEDBF(session_)), CMKEYCOUNT(session_));
        if (record == 12) session_.areas.clear_relations(kNamesArea);
    }
    for (const auto& [state, keys] : saved) {
        session_.areas.select(kPlainArea);
        ASSERT_TRUE(RESTDBF(session_, STR2A(station_.ui, state)));
        EXPECT_EQ(session_.areas.current(), kNamesArea);
        EXPECT_EQ(A2STR(SAVEDBF(session_)), state);
        EXPECT_EQ(CMKEYCOUNT(session_), keys);
        for (const Relation& relation : session_.areas.relations(kNamesArea)) {
            EXPECT_EQ(relation.scoped, relation.target == kNotesArea);
        }
    }
}

TEST_F(Browsing, ComesBackWithoutWhatHasGone) {
    set_order(parent(), "N");
    CMXSETSCOPE(session_, ScopeEnd::kTop, 10);
    parent().go_to(12);
    table(kPlainArea).go_to(7);
    const Value state = SAVEDBF(session_);
    session_.areas.select(kNotesArea);
    session_.areas.close();
    EXPECT_TRUE(SAVEDBF(session_).is_nil());
    EXPECT_TRUE(RESTDBF(session_, state)) << "a relation's target";
    EXPECT_EQ(session_.areas.relations(kNamesArea).size(), 1U);
    EXPECT_EQ(table(kPlainArea).record_number(), 7U) << "where it was itself";

    parent().clear_orders();
    EXPECT_TRUE(SAVEDBF(session_).is_nil()) << "no orders";
    session_.areas.select(kPlainArea);
    for (const Value& none : {Value(), Value::array({1, "x"}), Value("PARENT")}) {
        EXPECT_FALSE(RESTDBF(session_, none));
        EXPECT_EQ(session_.areas.current(), kPlainArea);
    }
    EXPECT_TRUE(RESTDBF(session_, state)) << "the order";
    EXPECT_EQ(parent().order_number(), 0U);
    EXPECT_EQ(parent().record_number(), 12U);
}

TEST_F(Browsing, SkipsNoFurtherThanTheFirstAndTheLast) {
    set_order(parent(), "K");
    EXPECT_TRUE(CMXSETSCOPE(session_, ScopeEnd::kTop, "K105").is_nil());
    EXPECT_EQ(CAST(CMXSETSCOPE(session_, ScopeEnd::kTop)), "K105");
    SETFILTER(session_, "N < 20");
    EXPECT_EQ(CMKEYCOUNT(session_), 15U);
    EXPECT_EQ(CMXKEYCOUNT(session_), 40U);
    parent().go_top();
    // Each from where the one before ended: count, moved, position of the key.
    const std::tuple<int, int, std::size_t> skips[] = {{-1, 0, 1},  {0, 0, 1},    {4, 4, 5},
                                                       {-2, -2, 3}, {-9, -2, 1},  {14, 14, 15},
                                                       {1, 0, 15},  {-3, -3, 12}, {9, 3, 15}};
    for (const auto& [count, moved, key] : skips) {
        EXPECT_EQ(DBSKIPPER(session_, count), moved) << count;
        EXPECT_EQ(CMKEYNO(session_), key) << count;
        EXPECT_FALSE(parent().end_of_file()) << count;
    }
    parent().go_to(0);
    EXPECT_EQ(DBSKIPPER(session_, 2), 0);
    EXPECT_TRUE(parent().end_of_file());
    EXPECT_EQ(DBSKIPPER(session_, -2), -2);
    EXPECT_EQ(CMKEYNO(session_), 14U);
    CMXKEYGOTO(session_, 7);
    EXPECT_EQ(CMKEYNO(session_), 7U);
    CMXKEYGOTO(session_, std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(CMKEYNO(session_), 1U);
    EXPECT_EQ(CMXKEYNO(session_), 6U);
    SETFILTER(session_, "N < 0");
    parent().go_top();
    for (const int skip : {-3, 0, 3}) EXPECT_EQ(DBSKIPPER(session_, skip), 0);
    CMCLRFILTER(session_);
    EXPECT_EQ(CMKEYCOUNT(session_), 35U);
}

}  // namespace
}  // namespace brenik
