// Moving through tables, against a model that sorts and steps through plain lists.
//
// The model knows orders, scopes, filters and hidden deleted records, and nothing of pages. Random
// moves on random tables must leave table and model at the same record, with the same flags, key
// numbers and key counts, while another session changes the table in between.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <random>

#include "engine/local/create.h"
#include "engine/local/local_engine.h"
#include "engine/work_areas.h"
#include "temporary_folder.h"

namespace brenik::local {
namespace {

namespace fs = std::filesystem;

Field field(const char* name, char type, std::uint32_t width) {
    Field made;
    made.name = name;
    made.type = type;
    made.width = width;
    return made;
}

std::string padded(std::string text) { return text.resize(4, ' '), text; }

class NavigationTest : public testing::Test {
  protected:
    std::string path(const std::string& name) const { return (folder_ / (name + ".DBF")).string(); }

    // A table of text K and number N.
    void make(const std::string& name, const std::vector<std::pair<std::string, int>>& rows,
              const std::vector<TagDefinition>& tags) {
        TableLayout layout;
        layout.fields = {field("K", 'C', 4), field("N", 'N', 4)};
        create_table(path(name), layout);
        auto table = engine_.open(path(name), TableSharing::kExclusive);
        for (const auto& [key, number] : rows) {
            ASSERT_TRUE(table->append_blank(true));
            table->field_put(1, key);
            table->field_put(2, number);
        }
        table.reset();
        if (!tags.empty()) create_index(path(name), tags);
    }

    TemporaryFolder folder_;
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
    bool (*holds)(const Row& row);
};

const ModelOrder kOrders[] = {
    {"", true, false, [](const Row&) { return true; }},
    {"UP", false, false, [](const Row&) { return true; }},
    {"DOWN", false, true, [](const Row&) { return true; }},
    {"NUMDOWN", true, true, [](const Row&) { return true; }},
    {"SOME", true, false, [](const Row& row) { return row.number > 20; }},
};

const std::pair<const char*, bool (*)(const Row& row)> kFilters[] = {
    {"", nullptr},
    {"N > 10", [](const Row& row) { return row.number > 10; }},
    {"K = \"B\" .OR. N < 5", [](const Row& row) { return row.key[0] == 'B' || row.number < 5; }},
    {"N = 77 .AND. N = 78", [](const Row&) { return false; }},
};

class Model {
  public:
    using List = std::vector<std::pair<Key, RecordNumber>>;  // in walking order
    struct Scopes {
        std::optional<Key> top, bottom;
    };

    Key key_of(std::size_t by, RecordNumber number) const {
        const Row& row = rows[number - 1];
        if (by == 0) return {};
        return kOrders[by].numeric ? number_key(row.number) : row.key;
    }

    List whole(std::size_t by) const {
        List list;
        for (RecordNumber r = 1; r <= rows.size(); ++r) {
            if (kOrders[by].holds(rows[r - 1])) list.emplace_back(key_of(by, r), r);
        }
        std::sort(list.begin(), list.end());
        if (kOrders[by].descending) std::reverse(list.begin(), list.end());
        return list;
    }

    // Below 0, 0, above 0: how a key lies to a shorter or equal one, in walking order.
    static int place(std::size_t by, const Key& key, const Key& limit) {
        const int bytes = key.compare(0, limit.size(), limit);
        return kOrders[by].descending ? -bytes : bytes;
    }

    List visible(std::size_t by) const {
        List list = whole(by);
        std::erase_if(list, [&](const auto& entry) {
            const Row& row = rows[entry.second - 1];
            const Scopes& limits = scopes[by];
            return (hidden && row.deleted) || (filter && !filter(row)) ||
                   (limits.top && place(by, entry.first, *limits.top) < 0) ||
                   (limits.bottom && place(by, entry.first, *limits.bottom) > 0);
        });
        return list;
    }

    static std::size_t number_in(const List& list, RecordNumber number) {
        for (std::size_t i = 0; i < list.size(); ++i) {
            if (list[i].second == number) return i + 1;
        }
        return 0;
    }

    void go_to(RecordNumber to) {
        record = to <= rows.size() ? to : 0;
        beginning = false;
    }

    void go_end(bool top) {
        const List list = visible(order);
        record = list.empty() ? 0 : top ? list.front().second : list.back().second;
        beginning = list.empty();
    }

    void skip(int count) {
        if (count == 0) return;
        beginning = false;
        const List list = visible(order);
        if (record == 0 && count < 0) {
            go_end(false);
            ++count;
        }
        for (; record != 0 && count != 0; count += count > 0 ? -1 : 1) {
            const std::pair<Key, RecordNumber> here{key_of(order, record), record};
            const auto before = [&](const auto& a, const auto& b) {
                return kOrders[order].descending ? b < a : a < b;
            };
            if (count > 0) {
                const auto next = std::upper_bound(list.begin(), list.end(), here, before);
                record = next == list.end() ? 0 : next->second;
                continue;
            }
            const auto same = std::lower_bound(list.begin(), list.end(), here, before);
            if (same == list.begin()) {
                go_end(true);
                beginning = true;
                return;
            }
            record = std::prev(same)->second;
        }
    }

    bool seek(const Key& wanted, SeekMode mode, SeekEnd end) {
        beginning = false;
        record = 0;
        bool found = false;
        for (const auto& [key, number] : visible(order)) {
            const int where = place(order, key, wanted);
            if (where == 0 && (!found || end == SeekEnd::kLast)) {
                record = number;
                found = true;
            }
            if (where > 0 && !found && record == 0 && mode == SeekMode::kSoft) record = number;
        }
        return found;
    }

    std::vector<Row> rows;
    std::size_t order = 0;
    Scopes scopes[std::size(kOrders)];
    bool (*filter)(const Row&) = nullptr;
    bool hidden = false;
    RecordNumber record = 0;
    bool beginning = false;
};

class RandomMoves : public NavigationTest, public testing::WithParamInterface<unsigned> {
  protected:
    unsigned any(unsigned below) { return static_cast<unsigned>(random_() % below); }

    std::string some_text() {
        std::string text;
        for (unsigned length = any(5); length > 0; --length) {
            text += static_cast<char>('A' + any(3));
        }
        return text;
    }

    void fill() {
        std::vector<std::pair<std::string, int>> rows;
        const bool small = GetParam() % 3 == 0;
        for (unsigned count = small ? any(12) : 150 + any(150); count > 0; --count) {
            rows.emplace_back(some_text(), static_cast<int>(any(60)));
            model_.rows.push_back({padded(rows.back().first), rows.back().second});
        }
        make("T", rows,
             {{"UP", "K"},
              {"DOWN", "K", "", false, false, true},
              {"NUMDOWN", "N", "", false, false, true},
              {"SOME", "N", "N>20"}});
        table_ = engine_.open(path("T"), TableSharing::kShared);
        other_ = other_engine_.open(path("T"), TableSharing::kShared);
        change_order();
        table_->go_top();
        model_.go_end(true);
    }

    void change_order() {
        model_.order = any(std::size(kOrders));
        table_->set_order(kOrders[model_.order].name);
    }

    // A key for a seek or scope: the value, and what it is in the model.
    std::pair<Value, Key> some_key() {
        if (kOrders[model_.order].numeric) {
            const int number = static_cast<int>(any(62));
            return {number, number_key(number)};
        }
        const std::string text = some_text();
        return {text, text};
    }

    void change_scope() {
        if (model_.order == 0) return;
        const bool top = any(2) == 0;
        auto [value, key] = some_key();
        const bool clear = any(2) == 0;
        table_->set_scope(top ? ScopeEnd::kTop : ScopeEnd::kBottom, clear ? Value() : value);
        auto& limit = top ? model_.scopes[model_.order].top : model_.scopes[model_.order].bottom;
        limit = clear ? std::optional<Key>() : key;
    }

    void change_filter() {
        const auto& [text, holds] = kFilters[any(2) * any(std::size(kFilters))];
        table_->set_filter(text);
        model_.filter = holds;
    }

    // Another session appends, or changes keys and deletion marks.
    void change_rows() {
        const Row row{padded(some_text()), static_cast<int>(any(60)), any(3) == 0};
        RecordNumber record = any(static_cast<unsigned>(model_.rows.size()) + 1);
        if (record == 0) {
            ASSERT_TRUE(other_->append_blank(true));
            record = other_->record_number();
            model_.rows.emplace_back();
        } else {
            other_->go_to(record);
            ASSERT_TRUE(other_->lock_record(record));
        }
        other_->field_put(1, row.key);
        other_->field_put(2, row.number);
        row.deleted ? other_->mark_deleted() : other_->recall();
        other_->unlock_all();
        model_.rows[record - 1] = row;
        go_to(model_.record);  // what was read before is the past
    }

    void go_to(RecordNumber record) {
        table_->go_to(record);
        model_.go_to(record);
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
        const Model::List list = model_.visible(model_.order);
        const int size = static_cast<int>(list.size());
        const int at = static_cast<int>(Model::number_in(list, model_.record));
        const int beyond = static_cast<int>(any(2));
        const int counts[] = {static_cast<int>(any(11)) - 5, static_cast<int>(any(500)) - 250,
                              size - at + beyond, 1 - at - beyond, beyond - size};
        const int count = counts[any(std::size(counts))];
        table_->skip(count);
        model_.skip(count);
    }

    void one_step() {
        switch (any(14)) {
            case 0:
                return change_order();
            case 1:
                return change_scope();
            case 2:
                return change_filter();
            case 3:
                model_.hidden = any(3) == 0;
                engine_.set_deleted_hidden(model_.hidden);
                return;
            case 4:
                return change_rows();
            case 5:
                return go_to(any(static_cast<unsigned>(model_.rows.size()) + 3));
            case 6:
            case 7: {
                const bool top = any(2) == 0;
                top ? table_->go_top() : table_->go_bottom();
                return model_.go_end(top);
            }
            case 8:
            case 9:
                return seek();
            default:
                return skip();
        }
    }

    void compare() {
        const RecordNumber past = static_cast<RecordNumber>(model_.rows.size()) + 1;
        ASSERT_EQ(table_->record_number(), model_.record == 0 ? past : model_.record);
        ASSERT_EQ(table_->end_of_file(), model_.record == 0);
        ASSERT_EQ(table_->beginning_of_file(), model_.beginning);
        const std::size_t order = any(2) == 0 ? model_.order : any(std::size(kOrders));
        for (const KeySet keys : {KeySet::kWhole, KeySet::kVisible}) {
            const Model::List list =
                keys == KeySet::kWhole ? model_.whole(order) : model_.visible(order);
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
    fill();
    for (int step = 0; step < 600; ++step) {
        one_step();
        compare();
        if (HasFatalFailure() || HasNonfatalFailure()) {
            FAIL() << "step " << step << ", order " << kOrders[model_.order].name << ", filter "
                   << table_->filter();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomMoves, testing::Range(1U, 7U));

// ------------------------------------------------------------------------ orders and settings

TEST_F(NavigationTest, OrdersAreFoundAsCallersNameThem) {
    make("T", {{"A", 1}}, {{"K", "K"}, {"LATE", "N", "N>2", true, false, true}});
    fs::copy_file(folder_ / "T.CDX", folder_ / "MORE.CDX");
    engine_.set_automatic_order(2);
    const auto table = engine_.open(path("T"), TableSharing::kShared);
    EXPECT_EQ(table->order_name(table->order_number()), "LATE");
    engine_.set_automatic_order(0);
    ASSERT_TRUE(table->add_orders("more"));
    EXPECT_EQ(table->order_number(), 2u) << "no order was to become controlling";
    EXPECT_EQ(table->order_count(), 4u);
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
    const OrderDescription late = table->order_description(2);
    EXPECT_EQ(late.key + "/" + late.condition, "N/N>2");
    EXPECT_TRUE(late.unique && late.descending && !late.custom);
    for (const std::size_t number : {0u, 5u}) {
        EXPECT_THROW(table->order_description(number), EngineFault) << number;
    }
    EXPECT_THROW(table->key_count(5, KeySet::kWhole), EngineFault);
}

TEST_F(NavigationTest, WhatDoesNotCompileLeavesFilterAndScopesAlone) {
    make("T", {{"A", 1}, {"B", 2}, {"C", 3}}, {{"K", "K"}});
    const auto table = engine_.open(path("T"), TableSharing::kShared);
    table->set_filter("N < 3");
    for (const char* bad : {"N <", "NONE = 1", "N < 3 )", "K", "N + 1", "{||N<3}"}) {
        for (const auto& use :
             std::vector<std::function<void()>>{[&] { table->set_filter(bad); },
                                                [&] { table->evaluate(std::string(bad) + ")"); }}) {
            try {
                use();
                ADD_FAILURE() << bad;
            } catch (const EngineFault& fault) {
                EXPECT_EQ(fault.code(), FaultCode::kUnsupported);
                const std::string text = fault.what();
                EXPECT_NE(text.find(bad), std::string::npos) << text;
                EXPECT_NE(text.find("at character "), std::string::npos) << text;
            }
        }
    }
    EXPECT_EQ(table->filter(), "N < 3");
    table->set_scope(ScopeEnd::kTop, "B");
    EXPECT_THROW(table->set_scope(ScopeEnd::kTop, 5), EngineFault);
    EXPECT_EQ(table->scope(ScopeEnd::kTop).text(), "B");
    EXPECT_EQ(table->key_count(1, KeySet::kVisible), 1u);
    table->set_order(std::size_t{0});
    EXPECT_TRUE(table->scope(ScopeEnd::kTop).is_nil());
    table->set_order(std::size_t{1});
    EXPECT_EQ(table->scope(ScopeEnd::kTop).text(), "B") << "an order keeps its scopes";
}

TEST_F(NavigationTest, ExpressionsGiveValues) {
    make("T", {{"AB", 7}}, {});
    const auto table = engine_.open(path("T"), TableSharing::kShared);
    table->go_to(1);
    const std::pair<const char*, Value> cases[] = {
        {"K", "AB  "}, {"TRIM(K)+\"x\"", "ABx"}, {"N", 7},        {"N/2", Number{3.5}},
        {"N=7", true}, {"CTOD(\"\")", Date()},   {"N>K", Value()}};
    for (const auto& [text, value] : cases) {
        if (value.is_nil()) {
            EXPECT_THROW(table->evaluate(text), EngineFault);
        } else {
            EXPECT_TRUE(table->evaluate(text).exactly_equals(value)) << text;
        }
    }
    EXPECT_EQ(table->evaluate("N").number_form().width, 4);
    table->go_to(0);
    EXPECT_EQ(table->evaluate("K").text(), "    ");
}

// -------------------------------------------------------------------------------- relations

class RelationsTest : public NavigationTest {
  protected:
    RelationsTest() {
        make("A", {{"X", 2}, {"Y", 9}, {"Z", 1}, {"Y", 3}}, {{"K", "K"}});
        make("B", {{"Y", 30}, {"X", 10}, {"Y", 20}, {"X", 40}}, {{"KN", "K+STR(N,4)"}});
        make("C", {{"Q", 10}, {"R", 20}, {"S", 30}}, {{"N", "N"}});
        for (const char* name : {"A", "B", "C"}) {
            areas_.open(path(name), {}, TableSharing::kShared, OpenIn::kNewArea);
        }
        areas_.table(1, "test").set_order("");
    }

    RecordNumber at(int area) {
        Table& table = areas_.table(area, "test");
        return table.end_of_file() ? 0 : table.record_number();
    }
    std::vector<RecordNumber> walk(int area) {
        std::vector<RecordNumber> records;
        Table& table = areas_.table(area, "test");
        for (table.go_top(); !table.end_of_file(); table.skip(1)) records.push_back(at(area));
        return records;
    }
    void expect_refused(const Relation& relation, FaultCode code, int area = 1) {
        try {
            areas_.add_relation(area, relation);
            ADD_FAILURE() << relation.expression;
        } catch (const EngineFault& fault) {
            EXPECT_EQ(fault.code(), code) << fault.what();
            EXPECT_NE(std::string(fault.what()).find(relation.expression), std::string::npos);
        }
    }

    WorkAreas areas_{engine_};
};

TEST_F(RelationsTest, TargetsFollowEveryMoveThroughChains) {
    Table& a = areas_.table(1, "test");
    areas_.add_relation(2, {3, "N"});
    areas_.add_relation(1, {2, "K"});
    EXPECT_EQ(at(2), 2u) << "positioned at once";
    struct Case {
        const char* name;
        std::function<void()> move;
        RecordNumber b, c;
    };
    const Case cases[] = {
        {"go to", [&] { a.go_to(2); }, 3, 2},
        {"skip", [&] { a.skip(1); }, 0, 0},
        {"bottom", [&] { a.go_bottom(); }, 3, 2},
        {"top", [&] { a.go_top(); }, 2, 1},
        {"seek", [&] { a.set_order("K"), a.seek("Y", SeekMode::kHard, SeekEnd::kLast); }, 3, 2},
        {"target moves alone", [&] { areas_.table(2, "test").skip(1); }, 1, 3},
        {"past the end", [&] { a.go_to(0); }, 0, 0},
        {"append", [&] { a.go_top(), (void)a.append_blank(true); }, 0, 0},
        {"no order: by record number",
         [&] {
             areas_.table(2, "test").set_order("");
             areas_.add_relation(1, {2, "N"});
             a.go_to(1);
         },
         2, 1},
        {"a number that is no record", [&] { a.go_to(2); }, 0, 0},
    };
    for (const Case& c : cases) {
        c.move();
        EXPECT_EQ(at(2), c.b) << c.name;
        EXPECT_EQ(at(3), c.c) << c.name;
    }
    EXPECT_EQ(areas_.relations(1).size(), 1u) << "the second took the first one's place";
    areas_.clear_relations(1);
    a.go_to(1);
    EXPECT_EQ(at(2), 0u);
}

TEST_F(RelationsTest, ScopedTargetsShowTheirParentsRecordsOnly) {
    using Records = std::vector<RecordNumber>;
    areas_.add_relation(1, {2, "K", true});
    const Records of_x{2, 4}, of_y{3, 1}, all{2, 4, 3, 1};
    for (const auto& [record, expected] :
         std::map<RecordNumber, Records>{{0, {}}, {1, of_x}, {2, of_y}, {3, {}}, {4, of_y}}) {
        areas_.table(1, "test").go_to(record);
        EXPECT_EQ(at(2), expected.empty() ? 0 : expected.front());
        EXPECT_EQ(walk(2), expected) << record;
        EXPECT_EQ(areas_.table(2, "test").key_count(1, KeySet::kVisible), expected.size());
    }
    areas_.clear_relations(1);
    EXPECT_EQ(walk(2), all) << "the scopes went with the relation";
}

TEST_F(RelationsTest, WhatCannotBeFollowedIsRefusedAndTheOldRelationStays) {
    areas_.add_relation(1, {2, "K"});
    areas_.add_relation(2, {3, "N"});
    expect_refused({1, "K"}, FaultCode::kUnsupported);            // itself
    expect_refused({1, "K"}, FaultCode::kUnsupported, 2);         // a circle of two
    expect_refused({1, "K"}, FaultCode::kUnsupported, 3);         // and of three
    expect_refused({2, "K+"}, FaultCode::kUnsupported);           // does not compile
    EXPECT_THROW(areas_.add_relation(1, {2, "N"}), EngineFault);  // does not suit the order
    EXPECT_THROW(areas_.add_relation(1, {9, "K"}), EngineFault);  // nothing there
    EXPECT_THROW(areas_.add_relation(9, {2, "K"}), EngineFault);
    ASSERT_EQ(areas_.relations(1).size(), 1u);
    EXPECT_EQ(areas_.relations(1)[0].expression, "K");
    areas_.table(1, "test").go_to(2);
    EXPECT_EQ(at(2), 3u);
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
    areas_.table(1, "test").go_to(1);
    areas_.clear_relations(1);
    areas_.close_all();
    EXPECT_EQ(areas_.lowest_free(), 1);
}

TEST_F(RelationsTest, SlotsAreNamedByAliasOrNumber) {
    const std::pair<const char*, int> cases[] = {{"b", 2},   {"3", 3}, {" 150 ", 150},
                                                 {"151", 0}, {"0", 0}, {"-1", 0},
                                                 {"2x", 0},  {"", 0},  {"none", 0}};
    for (const auto& [name, area] : cases) EXPECT_EQ(areas_.area_named(name), area) << name;
}

}  // namespace
}  // namespace brenik::local
