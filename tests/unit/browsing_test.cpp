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
        for (int i = 0; i < kRecords; ++i) keys_.push_back(key(i));
        std::shuffle(keys_.begin(), keys_.end(), random_);
        fill(kNotesArea, "NOTES");
        fill(kPlainArea, "PLAIN");
        fill(kNamesArea, "PARENT");
    }

    static std::string key(int number) { return "K" + std::to_string(100 + number); }

    void fill(int area, const char* name) {
        practice_.make(name, {{"K", 'C', 4}, {"N", 'N', 4}},
                       {{"K", "K"}, {"N", "N"}, {"BACK", "K", {}, false, false, true}});
        station_.open(area, name);
        for (int i = 0; i < kRecords; ++i) station_.add({keys_[static_cast<std::size_t>(i)], i});
    }

    int below(int limit) { return static_cast<int>(random_() % static_cast<unsigned>(limit)); }
    Table& table(int area) { return session_.areas.table(area, "test"); }

    // An order, scopes, a filter, a record: each perhaps.
    void wander() {
        session_.areas.select(kNamesArea);
        Table& moved = table(kNamesArea);
        moved.set_order(static_cast<std::size_t>(below(4)));
        const bool numbers = moved.order_number() == 2;
        const bool back = moved.order_number() == 3;
        const auto limit = [&](int number) {
            if (below(2) == 0) return Value();
            return numbers ? Value(number) : Value(key(number));
        };
        const int low = below(kRecords / 2);
        const int high = low + below(kRecords / 2);
        CMXSETSCOPE(session_, ScopeEnd::kTop, limit(back ? high : low));
        CMXSETSCOPE(session_, ScopeEnd::kBottom, limit(back ? low : high));
        SETFILTER(session_, below(2) == 0 ? "" : "N > " + std::to_string(below(20)));
        moved.go_top();
        moved.skip(below(10));
        if (below(4) == 0) moved.go_to(static_cast<RecordNumber>(below(kRecords + 2)));
    }

    void relate() {
        session_.areas.clear_relations(kNamesArea);
        table(kNotesArea).set_order("K");
        table(kPlainArea).set_order(std::size_t{0});
        if (below(2) == 0) CMXSETRELATION(session_, kNotesArea, "K");
        if (below(2) == 0) session_.areas.add_relation(kNamesArea, {kPlainArea, "RECNO() + 1"});
        if (below(2) == 0) table(kPlainArea).go_to(static_cast<RecordNumber>(below(kRecords)));
    }

    // Records that navigation in order K comes across, computed from the plain contents.
    std::vector<RecordNumber> visible(const Value& top, const Value& bottom, int above) const {
        std::vector<RecordNumber> records;
        for (RecordNumber record = 1; record <= kRecords; ++record) {
            const std::string& own = keys_[record - 1];
            const bool inside =
                (top.is_nil() || own >= top.text()) && (bottom.is_nil() || own <= bottom.text());
            if (inside && static_cast<int>(record) - 1 > above) records.push_back(record);
        }
        std::sort(records.begin(), records.end(),
                  [&](RecordNumber a, RecordNumber b) { return keys_[a - 1] < keys_[b - 1]; });
        return records;
    }

    // Skips up and down these records, 40 times, from the first.
    void browse(const std::vector<RecordNumber>& records) {
        Table& parent = table(kNamesArea);
        const auto count = static_cast<std::int64_t>(records.size());
        std::int64_t at = 0;
        for (int step = 0; step < 40; ++step) {
            if (below(10) == 0) {
                parent.go_to(0);
                at = count;
            }
            const std::int64_t wanted = below(15) - 7;
            const bool moves = wanted < 0 || (wanted > 0 && at < count);
            const std::int64_t reached =
                moves ? std::clamp<std::int64_t>(at + wanted, 0, count - 1) : at;
            ASSERT_EQ(DBSKIPPER(session_, wanted), reached - at) << at << " by " << wanted;
            at = reached;
            ASSERT_EQ(parent.end_of_file(), at == count);
            if (at == count) continue;
            ASSERT_EQ(parent.record_number(), records[static_cast<std::size_t>(at)]);
            ASSERT_EQ(CMKEYNO(session_), static_cast<std::size_t>(at) + 1);
        }
    }

    fake::Practice practice_;
    fake::Workstation station_{practice_};
    Session& session_ = station_.session;
    std::mt19937 random_{7};
    std::vector<std::string> keys_;
};

TEST_F(Browsing, ComesBackToWhereItWasSaved) {
    for (int round = 0; round < 200; ++round) {
        wander();
        relate();
        const std::string saved = A2STR(SAVEDBF(session_));
        const RecordNumber note = table(kNotesArea).record_number();
        wander();
        if (below(2) == 0) relate();
        session_.areas.select(kPlainArea);
        ASSERT_TRUE(RESTDBF(session_, STR2A(station_.ui, saved)));
        EXPECT_EQ(session_.areas.current(), kNamesArea);
        EXPECT_EQ(A2STR(SAVEDBF(session_)), saved) << round;
        for (const Relation& relation : session_.areas.relations(kNamesArea)) {
            EXPECT_EQ(relation.scoped, relation.target == kNotesArea);
            if (!relation.scoped) continue;
            EXPECT_EQ(table(kNotesArea).record_number(), note);
        }
    }
    EXPECT_TRUE(station_.ui.boxes.empty());
}

TEST_F(Browsing, IsSavedAtTheEndAsRecordZeroAndNotWithoutOrders) {
    table(kNamesArea).go_to(0);
    const Value state = SAVEDBF(session_);
    EXPECT_EQ((*state.array())[3].whole(), 0);
    table(kNamesArea).go_top();
    EXPECT_TRUE(RESTDBF(session_, state));
    EXPECT_TRUE(table(kNamesArea).end_of_file());
    table(kNamesArea).clear_orders();
    EXPECT_TRUE(SAVEDBF(session_).is_nil());
    session_.areas.select(99);
    EXPECT_TRUE(SAVEDBF(session_).is_nil());
    for (const Value& none : {Value(), Value::array({1, "x"}), Value("PARENT")}) {
        EXPECT_FALSE(RESTDBF(session_, none));
    }
    EXPECT_EQ(session_.areas.current(), 99);
}

TEST_F(Browsing, ComesBackWithoutWhatHasGone) {
    CMXSETRELATION(session_, kNotesArea, "K");
    table(kPlainArea).set_order(std::size_t{0});
    session_.areas.add_relation(kNamesArea, {kPlainArea, "RECNO()"});
    table(kNamesArea).set_order("N");
    CMXSETSCOPE(session_, ScopeEnd::kTop, 10);
    table(kNamesArea).go_to(12);
    const Value state = SAVEDBF(session_);

    session_.areas.select(kNotesArea);
    session_.areas.close();
    EXPECT_TRUE(RESTDBF(session_, state)) << "a relation's target";
    EXPECT_EQ(session_.areas.relations(kNamesArea).size(), 1U);
    EXPECT_EQ(table(kPlainArea).record_number(), 12U);

    table(kNamesArea).clear_orders();
    EXPECT_TRUE(RESTDBF(session_, state)) << "the order";
    EXPECT_EQ(table(kNamesArea).order_number(), 0U);
    EXPECT_EQ(table(kNamesArea).record_number(), 12U);

    session_.areas.close();
    session_.areas.select(kPlainArea);
    EXPECT_FALSE(RESTDBF(session_, state)) << "the table";
    EXPECT_EQ(session_.areas.current(), kPlainArea);
}

TEST_F(Browsing, RefusesExpressionsThatDoNotCompile) {
    SETFILTER(session_, "N > 5");
    for (const char* wrong : {"N >", "NOSUCH = 1", "N + 1", "(N > 5"}) {
        EXPECT_THROW(SETFILTER(session_, wrong), EngineFault) << wrong;
        EXPECT_EQ(table(kNamesArea).filter(), "N > 5");
    }
    table(kPlainArea).set_order(std::size_t{0});
    session_.areas.add_relation(kNamesArea, {kPlainArea, "RECNO()"});
    EXPECT_THROW(CMXSETRELATION(session_, kPlainArea, "K +"), EngineFault);
    EXPECT_EQ(session_.areas.relations(kNamesArea).at(0).expression, "RECNO()");
}

TEST_F(Browsing, SkipsNoFurtherThanTheFirstAndTheLast) {
    Table& parent = table(kNamesArea);
    parent.set_order("K");
    for (int round = 0; round < 40; ++round) {
        const Value top = below(3) == 0 ? Value() : Value(key(below(20)));
        const Value bottom = below(3) == 0 ? Value() : Value(key(15 + below(25)));
        const int above = below(3) == 0 ? -1 : below(45);
        CMXSETSCOPE(session_, ScopeEnd::kTop, top);
        CMXSETSCOPE(session_, ScopeEnd::kBottom, bottom);
        SETFILTER(session_, above < 0 ? "" : "N > " + std::to_string(above));
        const std::vector<RecordNumber> records = visible(top, bottom, above);
        EXPECT_EQ(CMKEYCOUNT(session_), records.size());
        EXPECT_EQ(CMXKEYCOUNT(session_), static_cast<std::size_t>(kRecords));
        parent.go_top();
        if (records.empty()) {
            EXPECT_EQ(DBSKIPPER(session_, 3), 0);
            EXPECT_EQ(DBSKIPPER(session_, -3), 0);
            continue;
        }
        browse(records);
        const int position = below(static_cast<int>(records.size()));
        CMXKEYGOTO(session_, position + 1);
        EXPECT_EQ(parent.record_number(), records[static_cast<std::size_t>(position)]);
        CMXKEYGOTO(session_, std::numeric_limits<std::int64_t>::min());
        EXPECT_EQ(parent.record_number(), records[0]);
    }
    practice_.make("EMPTY", {{"K", 'C', 4}});
    station_.open(8, "EMPTY");
    for (const int count : {-2, 0, 2}) EXPECT_EQ(DBSKIPPER(session_, count), 0);
}

TEST_F(Browsing, HelpersAnswerWhatWasBefore) {
    Table& parent = table(kNamesArea);
    EXPECT_EQ(CMXCOUNT(session_), 3U);
    EXPECT_EQ(CMXCOUNT(session_, "PARENT.CDX"), 3U);
    const ArrayReference rows = CMXINDEXINFO(session_);
    ASSERT_EQ(rows->size(), 3U);
    EXPECT_EQ(A2STR((*rows)[2]), A2STR(Value::array({"BACK", "K", "", false, true, false})));

    parent.set_order("K");
    EXPECT_TRUE(CMXSETSCOPE(session_, ScopeEnd::kTop, Value("K110")).is_nil());
    EXPECT_EQ(CAST(CMXSETSCOPE(session_, ScopeEnd::kTop)), "K110");
    EXPECT_EQ(CAST(CMXSETSCOPE(session_, ScopeEnd::kTop)), "K110") << "reporting changed it";
    CMXCLRSCOPE(session_, ScopeEnd::kTop);
    EXPECT_TRUE(CMXSETSCOPE(session_, ScopeEnd::kTop).is_nil());
    EXPECT_TRUE(CMXSEEKLAST(session_, "K1"));
    EXPECT_EQ(station_.text(kNamesArea, "K"), "K139");
    EXPECT_FALSE(CMXSEEKLAST(session_, "L"));
    EXPECT_EQ(CMXKEYCOUNT(session_, "NOSUCH"), 0U);
    EXPECT_EQ(CMXKEYNO(session_, "NOSUCH"), 0U);

    EXPECT_TRUE(CMXSHARED(session_));
    EXPECT_TRUE(CMXSHARED(session_, false));
    EXPECT_FALSE(CMXSHARED(session_));
    EXPECT_EQ(CMXAUTOORDER(session_, 2), 1);
    EXPECT_EQ(CMXAUTOORDER(session_), 2);
    EXPECT_EQ(CMXAUTOSHARE(session_, 1), 0);
    EXPECT_EQ(CMXAUTOSHARE(session_), 1);
    EXPECT_EQ(RLOPTLEVEL(session_), 0);
}

TEST_F(Browsing, ClearsFiltersWithOrWithoutTheirQuery) {
    Table& parent = table(kNamesArea);
    auto& queries = session_.related_queries;
    const auto set_filter = [&] {
        queries = {{kNamesArea, "mine"}, {kPlainArea, "other"}};
        CMFILTER(session_, "N > 5");
        EXPECT_EQ(parent.filter(), "N > 5");
    };
    set_filter();
    second_variant::CLEARFILTER(session_);
    EXPECT_EQ(parent.filter(), "");
    EXPECT_EQ(queries.size(), 2U);

    parent.set_order(std::size_t{0});
    CMCLRFILTER(session_);
    EXPECT_EQ(queries.size(), 2U) << "neither a filter nor an order";
    parent.set_order(std::size_t{1});
    CMCLRFILTER(session_);
    EXPECT_EQ(queries.size(), 1U) << "an order alone";
    parent.set_order(std::size_t{0});
    set_filter();
    CMCLRFILTER(session_);
    EXPECT_EQ(parent.filter(), "");
    EXPECT_FALSE(queries.contains(kNamesArea));
    set_filter();
    SETFILTER(session_, "");
    EXPECT_EQ(parent.filter(), "");
}

}  // namespace
}  // namespace brenik
