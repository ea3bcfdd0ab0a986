// What one table of any engine promises: fields, locks, appends, orders, filters and scopes, and
// why an open is refused.

#include <filesystem>
#include <functional>

#include "engine/table_expressions.h"
#include "engines.h"
#include "unit/checker.h"
#include "unit/file_bytes.h"
#include "unit/refused.h"

namespace brenik {
namespace {

using namespace std::string_literals;
using fake::append;
using fake::find;
using fake::take;
using Records = fake::RecordNumbers;

class TableTest : public EngineTest {};

TEST_P(TableTest, EveryFieldTypeKeepsItsValuesAndRefusesUnsuitableOnes) {
    const struct {
        fake::Column column;
        Value value;
        Value unsuitable = {};
    } cases[] = {
        {{"WIDE", 'C', 300}, std::string(300, 'x')},
        {{"N", 'N', 6, 2}, Number{-1.01}, "text"},
        {{"D", 'D', 8}, Date(2451545), 5},
        {{"L", 'L', 1}, true, "T"},
        {{"M", 'M', 4}, Memo{"a\0b\x1a"s}},
        {{"I", 'I', 4}, Number{-2147483648.0}, Number{3e9}},
        {{"B", 'B', 8, 3}, Number{0.125}},
        {{"Y", 'Y', 8, 4}, Number{-12.3456}, Number{1e300}},
        {{"T", 'T', 8}, "20240229120000500", "tomorrow"},
        {{"V", 'V', 20, 0, 0x02}, "short"},
        {{"NULLC", 'C', 5, 0, 0x02}, Value()},
    };
    std::vector<fake::Column> columns;
    Array values;
    for (const auto& c : cases) columns.push_back(c.column), values.push_back(c.value);
    folder_.make("T", columns, {{"I", "I"}, {"T", "T"}, {"NULLC", "NULLC"}, {"Y", "Y"}}, {}, 0x32);
    const auto table = open(*engine_);
    ASSERT_TRUE(append(*table, values) && take(*table, 1));
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        const auto& [column, value, unsuitable] = cases[i];
        EXPECT_TRUE(table->field_get(i + 1).exactly_equals(value)) << column.name;
        if (unsuitable.is_nil()) continue;
        EXPECT_THROW(table->field_put(i + 1, unsuitable), EngineFault) << column.name;
        EXPECT_TRUE(table->field_get(i + 1).exactly_equals(value)) << column.name;
    }
    EXPECT_TRUE(judged_right(path("T")));
}

// ------------------------------------------------------------------------- locks and appends

TEST_P(TableTest, LocksOfTwoWorkstationsExcludeEachOther) {
    make("T", {{"A", 1}, {"B", 2}}, {{"K", "K"}});
    for (const bool proprietary : {false, true}) {
        if (proprietary && !GetParam().has_locking_modes) continue;
        engine_->set_proprietary_locking(proprietary);
        other_->set_proprietary_locking(!proprietary);
        const bool excluded = GetParam().has_locking_modes;
        auto one = open(*engine_), two = open(*engine_);
        ASSERT_TRUE(one && two);
        EXPECT_EQ(open(*other_) == nullptr, excluded);
        EXPECT_FALSE(open(*other_, TableSharing::kExclusive));
        ASSERT_TRUE(one->lock_record(1));
        EXPECT_FALSE(two->lock_record(1));
        EXPECT_FALSE(two->lock_table());
        one->unlock_all();
        ASSERT_TRUE(two->lock_table());
        EXPECT_FALSE(one->lock_record(2));
        EXPECT_FALSE(one->append_blank(false));
        two->unlock_all();
        ASSERT_TRUE(append(*one, {"LAST"}));
        EXPECT_TRUE(find(*two, "LAST"));
        one.reset();
        EXPECT_EQ(open(*other_) == nullptr, excluded) << "one user is left";
        two.reset();
        EXPECT_TRUE(open(*other_));
        EXPECT_TRUE(open(*other_, TableSharing::kExclusive));
    }
}

TEST_P(TableTest, RecordsAreWrittenUnderTheirLockOnlyAndReadAnewWithIt) {
    make("T", {{"A", 1}}, {{"K", "K"}});
    const auto mine = open(*engine_), theirs = open(*other_);
    theirs->go_to(1);
    EXPECT_TRUE(refused([&] { theirs->field_put(1, "B"); }, FaultCode::kNotLocked));
    EXPECT_EQ(theirs->field_get(1).text(), "A   ");
    ASSERT_TRUE(take(*mine, 1));
    fake::put_and_unlock(*mine, {"B"});
    ASSERT_TRUE(theirs->lock_record(1));
    EXPECT_EQ(theirs->field_get(1).text(), "B   ");
}

TEST_P(TableTest, AWholeRecordIsAddedOrNothingOfIt) {
    make("T", {{"A", 1}, {"B", 2}}, {{"K", "K"}});
    const auto mine = open(*engine_), theirs = open(*other_);
    const auto begin = [&](const char* key) {
        mine->begin_record();
        mine->field_put(1, key);
    };
    begin("A");
    EXPECT_EQ(mine->record_number(), 3u);
    EXPECT_EQ(mine->add_record(LockTry::kAtOnce, 1), Table::Added::kTaken);
    mine->field_put(1, "C");
    ASSERT_TRUE(theirs->lock_table());
    EXPECT_EQ(mine->add_record(LockTry::kAtOnce, 1), Table::Added::kRefused);
    theirs->unlock_all();
    EXPECT_FALSE(find(*theirs, "C"));
    EXPECT_EQ(theirs->record_count(), 2u);
    EXPECT_EQ(mine->field_get(1).text(), "C   ") << "it is still begun";
    EXPECT_EQ(mine->add_record(LockTry::kAtOnce, 1), Table::Added::kDone);
    EXPECT_TRUE(find(*theirs, "C"));
    EXPECT_FALSE(theirs->lock_record(3));
    begin("D");
    EXPECT_EQ(mine->add_record(LockTry::kAtOnce, 0, Table::Leave::kUnlocked), Table::Added::kDone);
    EXPECT_TRUE(theirs->lock_record(4));
    begin("E");
    mine->go_top();
    EXPECT_EQ(theirs->record_count(), 4u) << "a move drops what was begun";
    EXPECT_TRUE(judged_right(path("T")));
}

TEST_P(TableTest, CandidateKeyIsRefusedTwiceAndLeavesNoSecondLiveRecord) {
    folder_.make("T", {{"K", 'C', 4}, {"M", 'M', 4}},
                 {{"K", "K", "", false, true}, {"LIVE", "K", "!DELETED()"}}, {}, 0x30);
    const auto table = open(*engine_);
    ASSERT_TRUE(append(*table, {"one"}));
    EXPECT_TRUE(refused([&] { append(*table, {"one"}); }, FaultCode::kDuplicateKey));
    table->abandon_changes();
    table->unlock_all();
    ASSERT_TRUE(append(*table, {"two", Memo{"as it was"}}) && take(*table, 3));
    table->field_put(2, Memo{"changed"});
    table->field_put(1, "one");
    EXPECT_THROW(table->commit(), EngineFault);
    table->abandon_changes();
    EXPECT_EQ(table->field_get(2).text(), "as it was") << "a refused change leaves the memo";
    table->go_to(2);
    EXPECT_TRUE(table->end_of_file() || table->deleted());
}

TEST_P(TableTest, OpensAreRefusedForTheirReason) {
    make("T", {{"A", 1}}, {{"K", "K"}});
    std::filesystem::create_directory(path("FOLDER"));
    std::unique_ptr<Table> theirs;
    const struct {
        const char* name;
        RefusalReason reason;
        FaultCode code;
        std::function<void()> prepare;
    } cases[] = {
        {"MISSING", RefusalReason::kMissing, FaultCode::kInputOutput, [] {}},
        {"FOLDER", RefusalReason::kNotPermitted, FaultCode::kInputOutput, [] {}},
        {"T", RefusalReason::kHeld, FaultCode::kBusy,
         [&] { theirs = open(*other_, TableSharing::kExclusive); }},
        {"T", RefusalReason::kOtherLockMode, FaultCode::kBusy,
         [&] { theirs.reset(), other_->set_proprietary_locking(true), theirs = open(*other_); }},
        {"T", RefusalReason::kDamaged, FaultCode::kUnsupported,  // a collation
         [&] {
             theirs.reset(), make("T", {{"A", 1}}, {{"K", "K"}});
             write_over(folder_.path("T.CDX"), 1536 + 494, "DUTCH");
         }},
        {"T", RefusalReason::kDamaged, FaultCode::kUnsupported,  // another kind of tag
         [&] {
             make("T", {{"A", 1}}, {{"K", "K"}});
             write_over(folder_.path("T.CDX"), 1536 + 15, "\5");
         }},
        {"T", RefusalReason::kDamaged, FaultCode::kUnsupported,  // a condition that is a number
         [&] {
             make("T", {{"A", 1}}, {{"K", "K", "N>2"}});
             const std::string index = folder_.path("T.CDX");
             write_over(index, bytes_of(index).find("N>2"), "N+2");
         }},
        {"M", RefusalReason::kMissing, FaultCode::kInputOutput,  // its memo file
         [&] {
             folder_.make("M", {{"M", 'M', 4}}, {}, {}, 0x30);
             std::filesystem::remove(folder_.path("M.FPT"));
         }},
        {"T", RefusalReason::kDamaged, FaultCode::kUnsupported,  // an unknown function in a key
         [&] {
             make("T", {{"A", 1}}, {{"K", "UPPER(K)"}});
             const std::string index = folder_.path("T.CDX");
             write_over(index, bytes_of(index).find("UPPER", 1024), "SOUND");
         }},
        {"T", RefusalReason::kDamaged, FaultCode::kDamagedFile,  // a header of one byte
         [&] { write_over(path("T"), 8, "\1\0"s); }},
    };
    for (const auto& c : cases) {
        if (c.reason == RefusalReason::kOtherLockMode && !GetParam().has_locking_modes) continue;
        c.prepare();
        const OpenAnswer answer = engine_->open(path(c.name), TableSharing::kShared);
        ASSERT_TRUE(std::holds_alternative<Refusal>(answer)) << c.name;
        const Refusal& refusal = std::get<Refusal>(answer);
        const std::string text = refusal.explanation();
        RefusalReason reason = c.reason;
        FaultCode code = c.code;
        if (!GetParam().tells_refusals_apart) {
            if (reason == RefusalReason::kOtherLockMode) reason = RefusalReason::kHeld;
            if (code == FaultCode::kUnsupported) code = FaultCode::kDamagedFile;
        }
        EXPECT_TRUE(refusal.reason == reason && refusal.code == code) << text;
        EXPECT_NE(text.find(std::string(c.name) + "."), std::string::npos) << text;
    }
}

// ------------------------------------------------------------------ orders, filters and scopes

TEST_P(TableTest, OrdersAreFoundAsCallersNameThem) {
    make("T", {{"A", 1}}, {{"K", "K"}, {"LATE", "N", "N>2", true, false, true}});
    std::filesystem::copy_file(folder_.path("T.CDX"), folder_.path("MORE.CDX"));
    const auto table = fake::open(*engine_, path("T"), TableSharing::kShared, 2);
    EXPECT_EQ(table->order_name(table->order_number()), "LATE");
    ASSERT_FALSE(table->add_orders("more", 0).has_value());
    EXPECT_EQ(table->order_number(), 2u) << "no order was to become controlling";

    struct Case {
        Value order;
        const char* file;
        std::optional<std::size_t> number;
    };
    for (const Case& c :
         {Case{Value(), "", 2}, Case{"late ", "", 2}, Case{"late", "MORE", 4},
          Case{1, "more.cdx", 3}, Case{Value(), "more", 3}, Case{0, "", 0}, Case{5, "", {}},
          Case{3, "more", {}}, Case{"NONE", "", {}}, Case{-1, "", {}}, Case{1, "none", {}}}) {
        EXPECT_EQ(find_order(*table, c.order, c.file), c.number) << c.order.text() << c.file;
    }
    EXPECT_THROW(table->order_description(5), EngineFault);
}

TEST_P(TableTest, AnIndexOfAnotherNameIsAttachedAndMaintained) {
    make("T", {}, {{"K", "K"}});
    std::filesystem::rename(folder_.path("T.CDX"), folder_.path("OTHER.CDX"));
    write_over(path("T"), 28, "\0"s);  // no structural index
    const auto table = open(*engine_);
    EXPECT_EQ(table->order_count(), 0u);
    EXPECT_EQ(table->add_orders("MISSING")->reason, RefusalReason::kMissing);
    ASSERT_FALSE(table->add_orders("OTHER").has_value());
    for (const char* key : {"b", "c", "a"}) ASSERT_TRUE(append(*table, {key}));
    EXPECT_EQ(fake::walk(*table), (Records{3, 1, 2}));
    table->clear_orders();
    ASSERT_FALSE(table->add_orders("other.cdx").has_value());
    EXPECT_TRUE(find(*table, "c"));
}

TEST_P(TableTest, WhatDoesNotCompileLeavesFilterAndScopesAlone) {
    make("T", {{"A", 1}, {"B", 2}, {"C", 3}}, {{"K", "K"}});
    const auto table = open(*engine_);
    TableExpressions expressions(*table);
    expressions.set_filter("N < 3");
    for (const std::string bad : {"N <", "NONE = 1", "K", "N + 1"}) {
        EXPECT_TRUE(refused([&] { expressions.set_filter(bad); }, FaultCode::kUnsupported, bad));
    }
    EXPECT_EQ(expressions.filter(), "N < 3");
    table->set_scope(ScopeEnd::kTop, "B");
    EXPECT_THROW(table->set_scope(ScopeEnd::kTop, 5), EngineFault);
    EXPECT_EQ(table->scope(ScopeEnd::kTop).text(), "B");
    EXPECT_EQ(table->key_count(1, KeySet::kVisible), 1u);
    table->set_order(0);
    EXPECT_TRUE(table->scope(ScopeEnd::kTop).is_nil());
    table->set_order(1);
    EXPECT_EQ(table->scope(ScopeEnd::kTop).text(), "B") << "an order keeps its scopes";
}

INSTANTIATE_TEST_SUITE_P(Engines, TableTest, testing::ValuesIn(kEngines), engine_name);

}  // namespace
}  // namespace brenik
