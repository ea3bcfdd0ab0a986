// Saved navigation states, the browser's skip, and the order, scope and filter helpers, on random
// tables of the embedded engine.

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>

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
    Browsing() {
        std::vector<Array> rows;
        for (int i = 0; i < kRecords; ++i) rows.push_back({key(i), i});
        std::shuffle(rows.begin(), rows.end(), random_);
        for (const auto& [area, name] :
             {std::pair(kNotesArea, "NOTES"), {kPlainArea, "PLAIN"}, {kNamesArea, "PARENT"}}) {
            practice_.make(name, {{"K", 'C', 4}, {"N", 'N', 4}},
                           {{"K", "K"}, {"N", "N"}, {"BACK", "K", {}, false, false, true}}, rows);
            station_.open(area, name);
        }
    }

    static std::string key(int number) { return "K" + std::to_string(100 + number); }
    int below(int limit) { return static_cast<int>(random_() % static_cast<unsigned>(limit)); }
    Table& table(int area) { return session_.areas.table(area, "test"); }
    Table& parent() { return table(kNamesArea); }

    // An order, scopes, a filter, a record: each perhaps.
    void wander() {
        session_.areas.select(kNamesArea);
        parent().set_order(static_cast<std::size_t>(below(4)));
        const bool back = parent().order_number() == 3;
        const auto limit = [&](int number) {
            if (below(2) == 0) return Value();
            return parent().order_number() == 2 ? Value(number) : Value(key(number));
        };
        const int low = below(kRecords / 2);
        const int high = low + below(kRecords / 2);
        CMXSETSCOPE(session_, ScopeEnd::kTop, limit(back ? high : low));
        CMXSETSCOPE(session_, ScopeEnd::kBottom, limit(back ? low : high));
        SETFILTER(session_, below(2) == 0 ? "" : "N > " + std::to_string(below(20)));
        parent().go_top();
        parent().skip(below(10));
        if (below(4) == 0) parent().go_to(static_cast<RecordNumber>(below(kRecords + 2)));
    }

    void relate() {
        session_.areas.clear_relations(kNamesArea);
        set_order(table(kNotesArea), "K");
        table(kPlainArea).set_order(0);
        if (below(2) == 0) CMXSETRELATION(session_, kNotesArea, "K");
        if (below(2) == 0) session_.areas.add_relation(kNamesArea, {kPlainArea, "RECNO() + 1"});
        if (below(2) == 0) table(kPlainArea).go_to(static_cast<RecordNumber>(below(kRecords)));
    }

    fake::Practice practice_;
    std::mt19937 random_{7};
    fake::Workstation station_{practice_};
    Session& session_ = station_.session;
};

TEST_F(Browsing, ComesBackToWhereItWasSaved) {
    for (int round = 0; round < 200; ++round) {
        wander();
        relate();
        const std::string saved = A2STR(SAVEDBF(session_));
        const RecordNumber note = table(kNotesArea).record_number();
        const std::size_t keys = CMKEYCOUNT(session_);
        wander();
        if (below(2) == 0) relate();
        session_.areas.select(kPlainArea);
        ASSERT_TRUE(RESTDBF(session_, STR2A(station_.ui, saved)));
        EXPECT_EQ(session_.areas.current(), kNamesArea);
        EXPECT_EQ(A2STR(SAVEDBF(session_)), saved) << round;
        EXPECT_EQ(CMKEYCOUNT(session_), keys) << round;
        for (const Relation& relation : session_.areas.relations(kNamesArea)) {
            EXPECT_EQ(relation.scoped, relation.target == kNotesArea);
            EXPECT_TRUE(!relation.scoped || table(kNotesArea).record_number() == note);
        }
    }
}

TEST_F(Browsing, ComesBackWithoutWhatHasGone) {
    CMXSETRELATION(session_, kNotesArea, "K");
    table(kPlainArea).set_order(0);
    session_.areas.add_relation(kNamesArea, {kPlainArea, "RECNO()"});
    set_order(parent(), "N");
    CMXSETSCOPE(session_, ScopeEnd::kTop, 10);
    parent().go_to(12);
    const Value state = SAVEDBF(session_);
    session_.areas.select(kNotesArea);
    session_.areas.close();
    EXPECT_TRUE(SAVEDBF(session_).is_nil());
    EXPECT_TRUE(RESTDBF(session_, state)) << "a relation's target";
    EXPECT_EQ(session_.areas.relations(kNamesArea).size(), 1U);
    EXPECT_EQ(table(kPlainArea).record_number(), 12U);

    parent().clear_orders();
    EXPECT_TRUE(SAVEDBF(session_).is_nil()) << "no orders";
    session_.areas.select(kPlainArea);
    for (const Value& none : {Value(), Value::array({1, "x"}), Value("PARENT")}) {
        EXPECT_FALSE(RESTDBF(session_, none));
        EXPECT_EQ(session_.areas.current(), kPlainArea);
    }
    EXPECT_TRUE(RESTDBF(session_, state)) << "the order";
    EXPECT_EQ(session_.areas.current(), kNamesArea);
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
    session_.related_queries = {{kNamesArea, "mine"}, {kPlainArea, "other"}};
    CMCLRFILTER(session_);
    EXPECT_EQ(CMKEYCOUNT(session_), 35U);
    EXPECT_EQ(session_.related_queries.size(), 1U);
}

}  // namespace
}  // namespace brenik
