// Moving through tables, against a model that sorts and steps through plain lists.
//
// The model knows orders, scopes, filters and hidden deleted records, and nothing of pages. Random
// moves on random tables must leave table and model at the same record, with the same flags, key
// numbers and key counts, while another session changes the table in between.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <random>

#include "engine/local/local_engine.h"
#include "engine/work_areas.h"
#include "refused.h"
#include "tables.h"

namespace brenik::local {
namespace {

class NavigationTest : public testing::Test {
  protected:
    std::string path(const std::string& name) const { return folder_.path(name + ".DBF"); }

    // A table of text K and number N.
    void make(const std::string& name, const std::vector<Array>& rows,
              const std::vector<make::TagDefinition>& tags) {
        folder_.make(name, {{"K", 'C', 4}, {"N", 'N', 4}}, tags, rows);
    }

    std::unique_ptr<Table> make_and_open(const std::vector<Array>& rows,
                                         const std::vector<make::TagDefinition>& tags) {
        make("T", rows, tags);
        return engine_.open(path("T"), TableSharing::kShared);
    }

    fake::TableFolder folder_;
    LocalEngine engine_;
};

// ------------------------------------------------------------------------------ random moves

struct Row {
    std::string key;
    int number = 0;
    bool deleted = false;
};

// A sort key: text of K, or N as text that sorts like the number.
using Key = std::string;
Key number_key(int number) { return std::to_string(100000 + number); }

struct ModelOrder {
    const char* name;  // empty: physical order
    bool numeric;
    bool descending;
    int above = -1;  // holds larger numbers only
};

constexpr ModelOrder kOrders[] = {{"", false, false},
                                  {"UP", false, false},
                                  {"DOWN", false, true},
                                  {"NUMDOWN", true, true},
                                  {"SOME", true, false, 20}};

const std::pair<const char*, bool (*)(const Row& row)> kFilters[] = {
    {"", [](const Row&) { return true; }},
    {"N > 10", [](const Row& row) { return row.number > 10; }},
    {"K = \"B\" .OR. N < 5", [](const Row& row) { return row.key[0] == 'B' || row.number < 5; }},
    {"N = 77 .AND. N = 78", [](const Row&) { return false; }},
};

class Model {
  public:
    using Entry = std::pair<Key, RecordNumber>;
    using List = std::vector<Entry>;  // in walking order
    struct Scopes {
        std::optional<Key> top, bottom;
    };

    Entry entry(std::size_t by, RecordNumber number) const {
        const Row& row = rows[number - 1];
        return {by == 0 ? "" : kOrders[by].numeric ? number_key(row.number) : row.key, number};
    }

    static auto walks_before(std::size_t by) {
        return
            [=](const Entry& a, const Entry& b) { return kOrders[by].descending ? b < a : a < b; };
    }

    // Below 0, 0, above 0: how a key lies to a shorter or equal one, in walking order.
    static int place(std::size_t by, const Key& key, const Key& limit) {
        const int bytes = key.compare(0, limit.size(), limit);
        return kOrders[by].descending ? -bytes : bytes;
    }

    bool visible(std::size_t by, const Entry& entry) const {
        const Row& row = rows[entry.second - 1];
        const Scopes& limits = scopes[by];
        return !(hidden && row.deleted) && filter(row) &&
               !(limits.top && place(by, entry.first, *limits.top) < 0) &&
               !(limits.bottom && place(by, entry.first, *limits.bottom) > 0);
    }

    List list(std::size_t by, KeySet keys = KeySet::kVisible) const {
        List list;
        for (RecordNumber r = 1; r <= rows.size(); ++r) {
            if (rows[r - 1].number <= kOrders[by].above) continue;
            const Entry one = entry(by, r);
            if (keys == KeySet::kWhole || visible(by, one)) list.push_back(one);
        }
        std::sort(list.begin(), list.end(), walks_before(by));
        return list;
    }

    static std::size_t number_in(const List& list, RecordNumber number) {
        const auto found = std::find_if(list.begin(), list.end(),
                                        [&](const Entry& one) { return one.second == number; });
        return found == list.end() ? 0 : static_cast<std::size_t>(found - list.begin()) + 1;
    }

    void go_to(RecordNumber to) {
        record = to <= rows.size() ? to : 0;
        beginning = false;
    }

    void go_end(bool top) {
        const List seen = list(order);
        record = seen.empty() ? 0 : top ? seen.front().second : seen.back().second;
        beginning = seen.empty();
    }

    // A record that is not in the list lies between two that are.
    void skip(int count) {
        if (count == 0) return;
        beginning = false;
        const List seen = list(order);
        auto at = static_cast<int>(seen.size());
        if (record != 0) {
            const Entry here = entry(order, record);
            const auto place =
                std::lower_bound(seen.begin(), seen.end(), here, walks_before(order));
            at = static_cast<int>(place - seen.begin());
            if (count > 0 && (place == seen.end() || *place != here)) --at;
        }
        at += count;
        if (at >= 0) {
            const auto reached = static_cast<std::size_t>(at);
            record = reached < seen.size() ? seen[reached].second : 0;
        } else {
            go_end(true);
            beginning = true;
        }
    }

    bool seek(const Key& wanted, SeekMode mode, SeekEnd end) {
        go_to(0);
        bool found = false;
        for (const auto& [key, number] : list(order)) {
            const int where = place(order, key, wanted);
            const bool soft = where > 0 && record == 0 && mode == SeekMode::kSoft;
            if (soft || (where == 0 && (!found || end == SeekEnd::kLast))) record = number;
            found = found || where == 0;
        }
        return found;
    }

    std::vector<Row> rows;
    std::size_t order = 0;
    Scopes scopes[std::size(kOrders)];
    bool (*filter)(const Row&) = kFilters[0].second;
    bool hidden = false;
    RecordNumber record = 0;
    bool beginning = false;
};

class RandomMoves : public NavigationTest, public testing::WithParamInterface<unsigned> {
  protected:
    int any(int below) { return static_cast<int>(random_() % static_cast<unsigned>(below)); }
    int any_record(int beyond) { return any(static_cast<int>(model_.rows.size()) + beyond); }

    Row some_row() {
        std::string text;
        for (int length = any(5); length > 0; --length) text += static_cast<char>('A' + any(3));
        return {text, any(60)};
    }

    void SetUp() override {
        std::vector<Array> rows;
        for (int count = GetParam() % 3 == 0 ? any(12) : 150 + any(150); count > 0; --count) {
            Row& row = model_.rows.emplace_back(some_row());
            rows.push_back({row.key, row.number});
            row.key.resize(4, ' ');
        }
        table_ = make_and_open(rows, {{"UP", "K"},
                                      {"DOWN", "K", "", false, false, true},
                                      {"NUMDOWN", "N", "", false, false, true},
                                      {"SOME", "N", "N>20"}});
        other_ = other_engine_.open(path("T"), TableSharing::kShared);
        change_order();
        go_to_end();
    }

    void change_order() {
        model_.order = static_cast<std::size_t>(any(std::size(kOrders)));
        table_->set_order(kOrders[model_.order].name);
    }

    // A key for a seek or scope: the value, and what it is in the model.
    std::pair<Value, Key> some_key() {
        const Row row = some_row();
        if (!kOrders[model_.order].numeric) return {row.key, row.key};
        return {row.number, number_key(row.number)};
    }

    void change_scope() {
        if (model_.order == 0) return;
        auto& [top, bottom] = model_.scopes[model_.order];
        const bool at_top = any(2) == 0;
        const auto [value, key] = some_key();
        const bool clear = any(2) == 0;
        table_->set_scope(at_top ? ScopeEnd::kTop : ScopeEnd::kBottom, clear ? Value() : value);
        (at_top ? top : bottom) = clear ? std::optional<Key>() : key;
    }

    void change_filter() {
        const auto& [text, holds] = kFilters[any(2) * any(std::size(kFilters))];
        table_->set_filter(text);
        model_.filter = holds;
    }

    void change_hiding() {
        model_.hidden = any(3) == 0;
        engine_.set_deleted_hidden(model_.hidden);
    }

    // Another session appends, or changes keys and deletion marks.
    void change_rows() {
        Row row = some_row();
        row.key.resize(4, ' ');
        row.deleted = any(3) == 0;
        auto record = static_cast<RecordNumber>(any_record(1));
        if (record == 0) {
            ASSERT_TRUE(other_->append_blank(true));
            record = other_->record_number();
            model_.rows.emplace_back();
        } else {
            other_->go_to(record);
            ASSERT_TRUE(other_->lock_record(record));
        }
        row.deleted ? other_->mark_deleted() : other_->recall();
        fake::put_and_unlock(*other_, {row.key, row.number});
        model_.rows[record - 1] = row;
        go_to(model_.record);  // what was read before is the past
    }

    void go_to(RecordNumber record) {
        table_->go_to(record);
        model_.go_to(record);
    }

    void go_somewhere() { go_to(static_cast<RecordNumber>(any_record(3))); }

    void go_to_end() {
        const bool top = any(2) == 0;
        top ? table_->go_top() : table_->go_bottom();
        model_.go_end(top);
    }

    void seek() {
        if (model_.order == 0) return;
        const auto [value, key] = some_key();
        const SeekMode mode = any(2) == 0 ? SeekMode::kHard : SeekMode::kSoft;
        const SeekEnd end = any(2) == 0 ? SeekEnd::kFirst : SeekEnd::kLast;
        EXPECT_EQ(table_->seek(value, mode, end), model_.seek(key, mode, end)) << key;
    }

    // Near, far, and far to the very last or first record and one beyond it.
    void skip() {
        const Model::List list = model_.list(model_.order);
        const int size = static_cast<int>(list.size());
        const int at = static_cast<int>(Model::number_in(list, model_.record));
        const int beyond = any(2);
        const int counts[] = {any(11) - 5, any(500) - 250, size - at + beyond, 1 - at - beyond,
                              beyond - size};
        const int count = counts[any(std::size(counts))];
        table_->skip(count);
        model_.skip(count);
    }

    void one_step() {
        using Self = RandomMoves;
        constexpr void (Self::*kSteps[])() = {
            &Self::change_order, &Self::change_scope, &Self::change_filter, &Self::change_hiding,
            &Self::change_rows,  &Self::go_somewhere, &Self::go_to_end,     &Self::go_to_end,
            &Self::seek,         &Self::seek,         &Self::skip,          &Self::skip,
            &Self::skip,         &Self::skip};
        (this->*kSteps[any(std::size(kSteps))])();
    }

    void compare() {
        const RecordNumber past = static_cast<RecordNumber>(model_.rows.size()) + 1;
        ASSERT_EQ(table_->record_number(), model_.record == 0 ? past : model_.record);
        ASSERT_EQ(table_->end_of_file(), model_.record == 0);
        ASSERT_EQ(table_->beginning_of_file(), model_.beginning);
        const auto other = static_cast<std::size_t>(any(std::size(kOrders)));
        const std::size_t order = any(2) == 0 ? model_.order : other;
        for (const KeySet keys : {KeySet::kWhole, KeySet::kVisible}) {
            const Model::List list = model_.list(order, keys);
            ASSERT_EQ(table_->key_count(order, keys), list.size()) << kOrders[order].name;
            ASSERT_EQ(table_->key_number(order, keys), Model::number_in(list, model_.record))
                << kOrders[order].name;
        }
    }

    Model model_;
    LocalEngine other_engine_;
    std::unique_ptr<Table> table_;
    std::unique_ptr<Table> other_;
    std::mt19937 random_{GetParam()};
};

TEST_P(RandomMoves, EndWhereTheModelDoes) {
    for (int step = 0; step < 600 && !HasFailure(); ++step) {
        SCOPED_TRACE("step " + std::to_string(step) + ", order " + kOrders[model_.order].name +
                     ", filter " + table_->filter());
        one_step();
        compare();
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomMoves, testing::Range(1U, 7U));

// ------------------------------------------------------------------------ orders and settings

TEST_F(NavigationTest, OrdersAreFoundAsCallersNameThem) {
    make("T", {{"A", 1}}, {{"K", "K"}, {"LATE", "N", "N>2", true, false, true}});
    std::filesystem::copy_file(folder_.path("T.CDX"), folder_.path("MORE.CDX"));
    engine_.set_automatic_order(2);
    const auto table = engine_.open(path("T"), TableSharing::kShared);
    EXPECT_EQ(table->order_name(table->order_number()), "LATE");
    engine_.set_automatic_order(0);
    ASSERT_TRUE(table->add_orders("more"));
    EXPECT_EQ(table->order_number(), 2u) << "no order was to become controlling";
    EXPECT_EQ(table->order_count_of("more"), 2u);
    EXPECT_EQ(table->order_count_of("none"), 0u);

    struct Case {
        Value order;
        const char* file;
        std::optional<std::size_t> number;
    };
    for (const Case& c :
         {Case{Value(), "", 2}, Case{"late ", "", 2}, Case{"late", "MORE", 4},
          Case{1, "more.cdx", 3}, Case{Value(), "more", 3}, Case{0, "", 0}, Case{5, "", {}},
          Case{3, "more", {}}, Case{"NONE", "", {}}, Case{-1, "", {}}, Case{1, "none", {}}}) {
        EXPECT_EQ(table->find_order(c.order, c.file), c.number) << c.order.text() << c.file;
    }
    for (const std::size_t number : {0u, 5u}) {
        EXPECT_THROW(table->order_description(number), EngineFault) << number;
    }
    EXPECT_THROW(table->key_count(5, KeySet::kWhole), EngineFault);
}

TEST_F(NavigationTest, WhatDoesNotCompileLeavesFilterAndScopesAlone) {
    const auto table = make_and_open({{"A", 1}, {"B", 2}, {"C", 3}}, {{"K", "K"}});
    table->set_filter("N < 3");
    for (const std::string bad : {"N <", "NONE = 1", "N < 3 )", "K", "N + 1", ") N", "{||N<3}"}) {
        EXPECT_TRUE(refused([&] { table->set_filter(bad); }, FaultCode::kUnsupported, bad));
    }
    EXPECT_TRUE(refused([&] { table->evaluate("N>K"); }, FaultCode::kUnsupported, "at character "));
    EXPECT_EQ(table->filter(), "N < 3");
    table->set_scope(ScopeEnd::kTop, "B");
    EXPECT_THROW(table->set_scope(ScopeEnd::kTop, 5), EngineFault);
    EXPECT_EQ(table->scope(ScopeEnd::kTop).text(), "B");
    EXPECT_EQ(table->key_count(1, KeySet::kVisible), 1u);
    table->set_order(std::size_t{0});
    EXPECT_TRUE(table->scope(ScopeEnd::kTop).is_nil());
    table->set_order(std::size_t{1});
    EXPECT_EQ(table->scope(ScopeEnd::kTop).text(), "B") << "an order keeps its scopes";

    table->go_to(1);
    const std::pair<const char*, Value> values[] = {
        {"TRIM(K)+\"x\"", "Ax"}, {"N/2", Number{0.5}}, {"N=1", true}, {"CTOD(\"\")", Date()}};
    for (const auto& [text, value] : values) {
        EXPECT_TRUE(table->evaluate(text).exactly_equals(value)) << text;
    }
    EXPECT_EQ(table->evaluate("N").number_form().width, 4);
    table->go_to(0);
    EXPECT_EQ(table->evaluate("K").text(), "    ");
}

// -------------------------------------------------------------------------------- relations

class RelationsTest : public NavigationTest {
  protected:
    using Records = std::vector<RecordNumber>;

    RelationsTest() {
        make("A", {{"X", 2}, {"Y", 9}, {"Z", 1}, {"Y", 3}}, {{"K", "K"}});
        make("B", {{"Y", 30}, {"X", 10}, {"Y", 20}, {"X", 40}}, {{"KN", "OLD->K+STR(N,4)"}});
        make("C", {{"Q", 10}, {"R", 20}, {"S", 30}}, {{"N", "N"}});
        for (const char* name : {"A", "B", "C"}) {
            areas_.open(path(name), {}, TableSharing::kShared, OpenIn::kNewArea);
        }
        a().set_order("");
    }

    Table& a() { return areas_.table(1, "test"); }
    Table& b() { return areas_.table(2, "test"); }
    RecordNumber at(int area) {
        Table& table = areas_.table(area, "test");
        return table.end_of_file() ? 0 : table.record_number();
    }
    Records walk(int area) {
        Records records;
        Table& table = areas_.table(area, "test");
        for (table.go_top(); !table.end_of_file(); table.skip(1)) records.push_back(at(area));
        return records;
    }

    WorkAreas areas_{engine_};
};

TEST_F(RelationsTest, TargetsFollowEveryMoveThroughChains) {
    areas_.add_relation(2, {3, "N"});
    areas_.add_relation(1, {2, "K"});
    EXPECT_EQ(at(2), 2u) << "positioned at once";
    struct Case {
        const char* name;
        std::function<void()> move;
        RecordNumber b, c;
    };
    const Case cases[] = {
        {"go to", [&] { a().go_to(2); }, 3, 2},
        {"skip", [&] { a().skip(1); }, 0, 0},
        {"bottom", [&] { a().go_bottom(); }, 3, 2},
        {"top", [&] { a().go_top(); }, 2, 1},
        {"seek", [&] { a().set_order("K"), a().seek("Y", SeekMode::kHard, SeekEnd::kLast); }, 3, 2},
        {"target moves alone", [&] { b().skip(1); }, 1, 3},
        {"past the end", [&] { a().go_to(0); }, 0, 0},
        {"append", [&] { a().go_top(), (void)a().append_blank(true); }, 0, 0},
        {"by record number",
         [&] {
             b().set_order(""), areas_.add_relation(1, {2, "N"}), a().go_to(1);
         },
         2, 1},
        {"a number that is no record", [&] { a().go_to(2); }, 0, 0},
    };
    for (const Case& c : cases) {
        c.move();
        EXPECT_EQ(at(2), c.b) << c.name;
        EXPECT_EQ(at(3), c.c) << c.name;
    }
    EXPECT_EQ(areas_.relations(1).size(), 1u) << "the second took the first one's place";
    areas_.clear_relations(1);
    a().go_to(1);
    EXPECT_EQ(at(2), 0u);
}

TEST_F(RelationsTest, ScopedTargetsShowTheirParentsRecordsOnly) {
    areas_.add_relation(1, {2, "K", true});
    const Records shown[] = {{}, {2, 4}, {3, 1}, {}, {3, 1}};
    for (RecordNumber record = 0; record < std::size(shown); ++record) {
        a().go_to(record);
        EXPECT_EQ(at(2), shown[record].empty() ? 0 : shown[record].front());
        EXPECT_EQ(walk(2), shown[record]) << record;
    }
    const Records all{2, 4, 3, 1};
    areas_.clear_relations(1);
    EXPECT_EQ(walk(2), all) << "the scopes went with the relation";
    areas_.add_relation(1, {2, "K", true});
    areas_.add_relation(1, {2, "K"});
    EXPECT_EQ(walk(2), all) << "and with one that a plain one replaces";
    areas_.add_relation(1, {2, "K", true});
    b().set_order("");
    areas_.clear_relations(1);
    b().set_order("KN");
    EXPECT_EQ(walk(2), all) << "and from an order that is not controlling any more";
    areas_.add_relation(3, {2, "'X'", true});
    areas_.add_relation(1, {2, "K", true});
    EXPECT_EQ(walk(2), shown[4]);
    areas_.clear_relations(1);
    EXPECT_EQ(walk(2), shown[1]) << "the other parent's limit holds again";
    areas_.clear_relations(3);
    folder_.make("D", {{"K", 'C', 4, 0, 0x02}}, {}, {{Value()}}, 0x30);
    areas_.open(path("D"), {}, TableSharing::kShared, OpenIn::kNewArea);
    areas_.add_relation(4, {2, "K", true});
    EXPECT_EQ(walk(2), Records{}) << "no key equals NULL";
}

TEST_F(RelationsTest, WhatCannotBeFollowedIsRefusedAndTheOldRelationStays) {
    areas_.add_relation(1, {2, "K"});
    areas_.add_relation(2, {3, "N"});
    const struct {
        int area;
        Relation relation;
        FaultCode code;
    } cases[] = {
        {1, {1, "K"}, FaultCode::kUnsupported},  // itself
        {3, {1, "K"}, FaultCode::kUnsupported},  // a circle
        {1, {2, "K+"}, FaultCode::kUnsupported},
        {1, {2, "B->K"}, FaultCode::kUnsupported},   // of another area
        {1, {2, "N"}, FaultCode::kUnsuitableValue},  // does not suit the order
        {1, {9, "K"}, FaultCode::kEmptyWorkArea},
        {9, {2, "K"}, FaultCode::kEmptyWorkArea},
    };
    for (const auto& c : cases) {
        EXPECT_TRUE(refused([&] { areas_.add_relation(c.area, c.relation); }, c.code)) << c.area;
    }
    ASSERT_EQ(areas_.relations(1).size(), 1u);
    EXPECT_EQ(areas_.relations(1)[0].expression, "K");
    areas_.add_relation(1, {2, "a->K+_FIELD.K"});
    areas_.add_relation(1, {2, "field->K"});
    a().go_to(2);
    EXPECT_EQ(at(2), 3u);
    b().set_filter("B->K='Y'");
    for (const char* text : {"K='X' .AND. A->K='Y'", "OLD.K='Y'"}) {
        EXPECT_TRUE(refused([&] { b().set_filter(text); }, FaultCode::kUnsupported, "alias"));
    }
    EXPECT_EQ(walk(2), (Records{3, 1}));
}

TEST_F(RelationsTest, ClosingEitherEndEndsTheRelation) {
    areas_.add_relation(1, {2, "K", true});
    areas_.add_relation(2, {3, "N", true});
    areas_.select(2);
    areas_.close();
    EXPECT_TRUE(areas_.relations(1).empty());
    EXPECT_EQ(walk(1).size(), 4u);
    EXPECT_EQ(walk(3).size(), 3u) << "the scopes went with the parent";
    areas_.open(path("B"), "again", TableSharing::kShared, OpenIn::kNewArea);
    EXPECT_EQ(areas_.current(), 2) << "the lowest free slot";
    areas_.add_relation(1, {2, "K", true});
    engine_.close_all_tables();
    a().go_to(1);
    areas_.clear_relations(1);
}

TEST_F(RelationsTest, SlotsAreNamedByAliasOrNumber) {
    const std::pair<const char*, int> cases[] = {
        {"b", 2}, {" 150 ", 150}, {"151", 0}, {"0", 0}, {"-1", 0}, {"2x", 0}, {"", 0}, {"none", 0}};
    for (const auto& [name, area] : cases) EXPECT_EQ(areas_.area_named(name), area) << name;
}

}  // namespace
}  // namespace brenik::local
