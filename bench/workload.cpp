#include "workload.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <utility>

#include "brenikdb.h"
#include "engine/local/local_engine.h"
#include "engine/make/create_table.h"
#include "engine/make/table_writer.h"
#include "engine/orders.h"

namespace brenik::bench {

namespace fs = std::filesystem;

namespace {

constexpr int kContacts = 1;
constexpr int kMatters = 3;
constexpr std::size_t kSteps = 100;  // of a walk, in one batch

// Gives the same numbers in every run.
class Random {
  public:
    std::size_t below(std::size_t end) { return engine_() % end; }
    std::string digits() { return std::to_string(engine_()); }
    std::string letters(std::size_t count) {
        std::string text(count, 'A');
        for (char& letter : text) letter = static_cast<char>('A' + engine_() % 26);
        return text;
    }

    void shuffle(std::vector<std::string>& texts) {
        for (std::size_t i = texts.size(); i > 1; --i) std::swap(texts[i - 1], texts[below(i)]);
    }

  private:
    std::mt19937 engine_{2026};
};

void expect_success(unsigned code, const char* call) {
    if (code != 0) give_up(std::string(call) + " answered " + std::to_string(code));
}

void expect(bool holds, const char* what) {
    if (!holds) give_up(what);
}

std::unique_ptr<Table> open(Engine& engine, const fs::path& path) {
    OpenAnswer answer = engine.open(path.string(), TableSharing::kShared);
    if (const auto* refusal = std::get_if<Refusal>(&answer)) give_up(refusal->text);
    return std::move(std::get<std::unique_ptr<Table>>(answer));
}

std::size_t position_of(const Table& table, const std::string& name) {
    for (std::size_t i = 0; i < table.fields().size(); ++i) {
        if (table.fields()[i].name == name) return i + 1;
    }
    give_up("the sample's contacts have no field " + name);
}

void set_order(Table& table, const char* order) {
    if (!brenik::set_order(table, order))
        give_up(std::string("the contacts have no order ") + order);
}

// One field's texts of all contacts that are not deleted, in file order.
std::vector<std::string> texts_of(Table& table, const char* field) {
    std::vector<std::string> texts;
    set_order(table, "");
    const std::size_t position = position_of(table, field);
    for (table.go_top(); !table.end_of_file(); table.skip(1)) {
        if (!table.deleted()) texts.push_back(table.field_get(position).text());
    }
    return texts;
}

class HostWorkload : public Workload {
  public:
    explicit HostWorkload(fs::path practice) : practice_(std::move(practice)) {
        local::LocalEngine engine;
        const auto contacts = open(engine, practice_ / "LAW1");
        ids_ = texts_of(*contacts, "ID");
        u_ids_ = texts_of(*contacts, "U_ID");
        random_.shuffle(u_ids_);
        start();
    }
    ~HostWorkload() override { BrenikShutDown(); }

    std::vector<Operation> operations() override {
        return {{"start-stop", [this] { stop_and_start(); }, 1, 50},
                {"my-firm", [] { get_my_firm(); }},
                {"seek-id", [this] { seek_id(); }},
                {"edit-start", [this] { edit_start(u_ids_[random_.below(u_ids_.size())]); }},
                {"edit-end", [this] { edit_plain_fields(); }},
                {"edit-key", [this] { edit_indexed_field(); }},
                {"add-end", [this] { add_contact(); }},
                {"add-linked", [this] { add_matter(); }}};
    }

  private:
    using Values = std::vector<std::pair<const char*, std::string>>;

    void start() { expect_success(BrenikInitialize(practice_.c_str(), 0, 0), "BrenikInitialize"); }

    void stop_and_start() {
        expect_success(BrenikShutDown(), "BrenikShutDown");
        start();
    }

    static void get_my_firm() {
        char text[256] = {};
        std::fill_n(text, 200, ' ');
        expect_success(BrenikGetMyFirm(text), "BrenikGetMyFirm");
    }

    void seek_id() {
        char u_id[16] = "       ";
        const std::string& id = ids_[random_.below(ids_.size())];
        expect_success(BrenikGetU_ID(kContacts, id.c_str(), u_id), "BrenikGetU_ID");
    }

    static void edit_start(const std::string& u_id) {
        int position = 0;
        expect_success(BrenikEditStart(kContacts, u_id.c_str(), &position), "BrenikEditStart");
    }

    static void set_fields(int table, const Values& values) {
        for (const auto& [name, value] : values) {
            expect_success(BrenikSetField(table, 0, name, value.c_str()), "BrenikSetField");
        }
    }

    // Edits the contacts in turn. The journal entry of a contact that was edited within two seconds
    // keeps its stamp, and so its place in the index, and the work that this saves would depend on
    // time.
    void edit(const Values& values) {
        edit_start(u_ids_[edits_++ % u_ids_.size()]);
        set_fields(kContacts, values);
        expect_success(BrenikEditEnd(kContacts, 0), "BrenikEditEnd");
    }

    void edit_plain_fields() { edit({{"DAYPHONE", random_.digits()}, {"CITY", "Salem"}}); }
    void edit_indexed_field() { edit({{"LAST", random_.letters(8)}}); }

    // `contact` is the identifier of the contact to link the record to, or empty.
    static void add(int table, const Values& values, const std::string& contact) {
        int position = 0;
        expect_success(BrenikAddStart(table, &position), "BrenikAddStart");
        set_fields(table, values);
        char u_id[16] = "";
        contact.copy(u_id, sizeof u_id - 1);
        expect_success(BrenikAddEnd(table, u_id), "BrenikAddEnd");
    }

    void add_contact() {
        const std::string number = random_.digits();
        add(kContacts,
            {{"ID", "B" + number},
             {"LAST", "Bench " + number},
             {"FIRST", "Anna"},
             {"CITY", "Salem"},
             {"DAYPHONE", number}},
            "");
    }

    void add_matter() {
        const std::string number = random_.digits();
        add(kMatters, {{"CASENUM", number}, {"MATTER", "Bench " + number}},
            u_ids_[random_.below(u_ids_.size())]);
    }

    fs::path practice_;
    std::vector<std::string> ids_;
    std::vector<std::string> u_ids_;  // shuffled
    std::size_t edits_ = 0;
    Random random_;
};

class SeamWorkload : public Workload {
  public:
    explicit SeamWorkload(const fs::path& practice)
        : table_(open(engine_, practice / "LAW1")),
          records_(table_->record_count()),
          last_(position_of(*table_, "LAST")) {
        for (const char* name : {"U_ID", "ID", "LAST", "FIRST", "CITY"}) {
            appended_.push_back(position_of(*table_, name));
        }
    }

    std::vector<Operation> operations() override {
        const std::size_t city = position_of(*table_, "CITY");
        return {{"append", [this] { append(); }},
                {"put", [this, city] { put(city); }},
                {"put-key", [this] { put(last_); }},
                {"seek-uid", [this] { seek("U_ID", any_u_id()); }},
                {"seek-name", [this] { seek("NAME", random_.letters(2)); }},
                {"walk", [this] { walk("NAME"); }, kSteps},
                {"scan", [this] { walk(""); }, kSteps}};
    }

  private:
    void append() {
        expect(table_->append_blank(true), "another program locks the benchmark's table");
        for (const std::size_t field : appended_) table_->field_put(field, random_.letters(7));
        table_->unlock_all();
    }

    void put(std::size_t field) {
        const auto record = static_cast<RecordNumber>(random_.below(records_) + 1);
        table_->go_to(record);
        expect(table_->lock_record(record), "another program locks a record of the benchmark");
        table_->field_put(field, random_.letters(8));
        table_->unlock_all();
    }

    // Reads the identifiers on first use: workloads before that must not cost more because of them.
    const std::string& any_u_id() {
        if (u_ids_.empty()) u_ids_ = texts_of(*table_, "U_ID");
        return u_ids_[random_.below(u_ids_.size())];
    }

    void seek(const char* order, const std::string& key) {
        set_order(*table_, order);
        static_cast<void>(table_->seek(key, SeekMode::kSoft, SeekEnd::kFirst));
        static_cast<void>(table_->field_get(last_));
    }

    // Starts again at the top when it reaches the end.
    void walk(const char* order) {
        if (walking_ != order || table_->end_of_file()) {
            set_order(*table_, order);
            table_->go_top();
            walking_ = order;
        }
        for (std::size_t step = 0; step < kSteps && !table_->end_of_file(); ++step) {
            static_cast<void>(table_->field_get(last_));
            table_->skip(1);
        }
    }

    local::LocalEngine engine_;
    std::unique_ptr<Table> table_;
    std::size_t records_;  // at the start
    std::vector<std::string> u_ids_;
    std::size_t last_;
    std::vector<std::size_t> appended_;  // the fields that receive a value
    std::string walking_ = "nowhere";
    Random random_;
};

class KeyWorkload : public Workload {
  public:
    KeyWorkload(const fs::path& folder, std::size_t keys)
        : keys_(keys), path_((folder / "KEYS.DBF").string()) {
        make_table();
        table_ = open(engine_, path_);
    }

    std::vector<Operation> operations() override {
        return {{"first-count", [this] { first_count(); }, 1, 20},
                {"key-count", [this] { count_in_scopes(); }},
                {"key-number", [this] { number_of_a_key(); }},
                {"skip-far", [this] { skip_far(); }},
                {"walk-keys", [this] { walk(); }, kSteps}};
    }

  private:
    void make_table() {
        record::TableLayout layout;
        record::Field key;
        key.name = "K";
        key.width = kKeyWidth;
        layout.fields = {key};
        make::TableWriter writer(path_, layout);
        for (std::size_t i = 0; i < keys_; ++i) writer.append({random_.letters(kKeyWidth)});
        writer.close();
        make::create_index(path_, {{"K", "K"}});
    }

    RecordNumber any_record() { return static_cast<RecordNumber>(random_.below(keys_) + 1); }

    void first_count() {
        const RecordNumber record = any_record();
        table_->go_to(record);
        expect(table_->lock_record(record), "another program locks a record of the benchmark");
        table_->field_put(1, random_.letters(kKeyWidth));
        table_->unlock_all();
        expect(table_->key_count(1, KeySet::kWhole) == keys_, "a wrong number of keys");
    }

    void count_in_scopes() {
        const std::string top = random_.letters(kKeyWidth);
        table_->set_scope(ScopeEnd::kTop, top);
        table_->set_scope(ScopeEnd::kBottom, top.substr(0, 1));
        static_cast<void>(table_->key_count(1, KeySet::kVisible));
        table_->set_scope(ScopeEnd::kTop, {});
        table_->set_scope(ScopeEnd::kBottom, {});
    }

    void number_of_a_key() {
        table_->go_to(any_record());
        expect(table_->key_number(1, KeySet::kWhole) != 0, "a record without a key");
    }

    void skip_far() {
        const std::size_t number = random_.below(keys_) + 1;
        table_->go_top();
        table_->skip(static_cast<std::int64_t>(number) - 1);
        expect(table_->key_number(1, KeySet::kWhole) == number, "a wrong number of a key");
        table_->skip(-static_cast<std::int64_t>(number / 2));
    }

    void walk() {
        for (std::size_t step = 0; step < kSteps; ++step) {
            if (table_->end_of_file()) table_->go_top();
            table_->skip(1);
        }
    }

    static constexpr std::uint32_t kKeyWidth = 10;

    std::size_t keys_;
    std::string path_;
    local::LocalEngine engine_;
    std::unique_ptr<Table> table_;
    Random random_;
};

}  // namespace

std::unique_ptr<Workload> host_workload(const fs::path& practice) {
    return std::make_unique<HostWorkload>(practice);
}

std::unique_ptr<Workload> seam_workload(const fs::path& practice) {
    return std::make_unique<SeamWorkload>(practice);
}

std::unique_ptr<Workload> key_workload(const fs::path& folder, std::size_t keys) {
    return std::make_unique<KeyWorkload>(folder, keys);
}

void give_up(const std::string& reason) {
    std::fprintf(stderr, "brenik_bench: %s\n", reason.c_str());
    std::exit(1);
}

}  // namespace brenik::bench
