// Moving through tables, against a model that sorts and steps through plain lists.
//
// The model knows orders, scopes, filters and hidden deleted records, and nothing of pages. Random
// moves on random tables must leave table and model at the same record, with the same flags, key
// numbers and key counts, while another session changes the table in between.

#include <algorithm>
#include <optional>
#include <random>

#include "engine/table_expressions.h"
#include "engines.h"

namespace brenik {
namespace {

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

class RandomMoves : public EngineTest {
  protected:
    int any(int below) { return static_cast<int>(random_() % static_cast<unsigned>(below)); }
    int any_record(int beyond) { return any(static_cast<int>(model_.rows.size()) + beyond); }

    Row some_row() {
        std::string text;
        for (int length = any(5); length > 0; --length) text += static_cast<char>('A' + any(3));
        return {text, any(60)};
    }

    // Small tables for every third seed.
    void begin(unsigned seed) {
        random_.seed(seed);
        model_ = {};
        table_.reset();
        other_table_.reset();
        engine_->set_deleted_hidden(false);
        std::vector<Array> rows;
        for (int count = seed % 3 == 0 ? any(12) : 150 + any(150); count > 0; --count) {
            Row& row = model_.rows.emplace_back(some_row());
            rows.push_back({row.key, row.number});
            row.key.resize(4, ' ');
        }
        make("T", rows,
             {{"UP", "K"},
              {"DOWN", "K", "", false, false, true},
              {"NUMDOWN", "N", "", false, false, true},
              {"SOME", "N", "N>20"}});
        table_ = open(*engine_);
        expressions_.emplace(*table_);
        other_table_ = open(*other_);
        change_order();
        go_to_end();
    }

    void change_order() {
        model_.order = static_cast<std::size_t>(any(std::size(kOrders)));
        set_order(*table_, kOrders[model_.order].name);
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
        expressions_->set_filter(text);
        model_.filter = holds;
    }

    void change_hiding() {
        model_.hidden = any(3) == 0;
        engine_->set_deleted_hidden(model_.hidden);
    }

    // Another session appends, or changes keys and deletion marks.
    void change_rows() {
        Row row = some_row();
        row.key.resize(4, ' ');
        row.deleted = any(3) == 0;
        auto record = static_cast<RecordNumber>(any_record(1));
        if (record == 0) {
            ASSERT_TRUE(other_table_->append_blank(true));
            record = other_table_->record_number();
            model_.rows.emplace_back();
        } else {
            ASSERT_TRUE(fake::take(*other_table_, record));
        }
        row.deleted ? other_table_->mark_deleted() : other_table_->recall();
        fake::put_and_unlock(*other_table_, {row.key, row.number});
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
    std::unique_ptr<Table> table_;
    std::optional<TableExpressions> expressions_;
    std::unique_ptr<Table> other_table_;
    std::mt19937 random_;
};

TEST_P(RandomMoves, EndWhereTheModelDoes) {
    for (unsigned seed = 1; seed < 7; ++seed) {
        begin(seed);
        for (int step = 0; step < 600 && !HasFailure(); ++step) {
            SCOPED_TRACE("seed " + std::to_string(seed) + ", step " + std::to_string(step) +
                         ", order " + kOrders[model_.order].name + ", filter " +
                         expressions_->filter());
            one_step();
            compare();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Engines, RandomMoves, testing::ValuesIn(kEngines), engine_name);

}  // namespace
}  // namespace brenik
