// The library's own workloads, through the exports and at the engine's seam.

#include "workload.h"

#include <algorithm>
#include <utility>

#include "brenikdb.h"
#include "contact_examples.h"
#include "engine/make/create_table.h"
#include "engine/make/table_writer.h"
#include "practice/catalogue.h"
#include "practice/identifiers.h"
#include "practice/journal_entry.h"
#include "random.h"
#include "tables.h"

namespace brenik::bench {

namespace fs = std::filesystem;

namespace {

constexpr int kContacts = 1;
constexpr int kMatters = 3;
constexpr const char* kBusyTable = "another program locks the benchmark's table";
constexpr const char* kBusyRecord = "another program locks a record of the benchmark";

void expect_success(unsigned code, const char* call) {
    if (code != 0) give_up(std::string(call) + " answered " + std::to_string(code));
}

class HostWorkload : public Workload {
  public:
    explicit HostWorkload(fs::path practice) : practice_(std::move(practice)) {
        const auto engine = new_engine();
        const auto contacts = open_table(*engine, practice_ / practice::kNames.file);
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

    void edit_plain_fields() { edit({{"DAYPHONE", random_.digits()}, {"DEAR", "Sam"}}); }
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

// A counter, as the library raises it: read, raised and written under the lock of its record.
class Counter {
  public:
    Counter(Engine& engine, const fs::path& practice)
        : system_(open_table(engine, practice / practice::kSystem.file)),
          number_(position_of(*system_, practice::counter_field(kContacts))),
          prefix_(system_->field_get(position_of(*system_, practice::kPrefixField)).text()) {}

    std::string lock_and_raise() {
        expect(system_->lock_record(1), kBusyRecord);
        system_->refresh_record();
        const std::int64_t number = system_->field_get(number_).whole() + 1;
        system_->field_put(number_, number);
        system_->commit();
        return practice::identifier_of(prefix_, number);
    }
    void unlock() { system_->unlock_all(); }

  private:
    std::unique_ptr<Table> system_;
    std::size_t number_;
    std::string prefix_;
};

class SeamWorkload : public Workload {
  public:
    explicit SeamWorkload(const fs::path& practice)
        : table_(open_table(*engine_, practice / practice::kNames.file)),
          examples_(*table_),
          counter_(*engine_, practice),
          journal_(open_table(*engine_, practice / practice::kJournal.file)),
          records_(table_->record_count()),
          last_(position_of(*table_, "LAST")) {
        for (const char* name : {"U_ID", "ID", "LAST", "FIRST", "CITY"}) {
            appended_.push_back(position_of(*table_, name));
        }
        for (const char* name : {practice::kKindField, practice::kTableCodeField,
                                 practice::kStampField, practice::kIdentifierField}) {
            noted_.push_back(position_of(*journal_, name));
        }
    }

    std::vector<Operation> operations() override {
        const std::size_t plain = position_of(*table_, "DEAR");
        return {{"append", [this] { append(); }},
                {"append-whole", [this] { append_whole(); }},
                {"put", [this, plain] { put(plain); }},
                {"put-key", [this] { put(last_); }},
                {"seek-uid", [this] { seek("U_ID", any_u_id()); }},
                {"seek-name", [this] { seek("NAME", random_.letters(2)); }},
                {"walk", [this] { walk("NAME"); }, kSteps},
                {"scan", [this] { walk(""); }, kSteps}};
    }

  private:
    void append() {
        expect(table_->append_blank(true), kBusyTable);
        for (const std::size_t field : appended_) table_->field_put(field, random_.letters(7));
        table_->unlock_all();
    }

    // The steps of AddEnd, without its checks.
    void append_whole() {
        const std::string u_id = counter_.lock_and_raise();
        const Contact contact = examples_.next(random_);
        table_->begin_record();
        for (std::size_t field = 1; field <= contact.size(); ++field) {
            if (!contact[field - 1].is_nil()) table_->field_put(field, contact[field - 1]);
        }
        table_->field_put(appended_.front(), u_id);
        expect(table_->add_record(LockTry::kAtOnce, 1) == Table::Added::kDone, kBusyTable);
        table_->unlock_all();
        note_addition(u_id);
        counter_.unlock();
    }

    // Stamps rise like those of a busy day.
    void note_addition(const std::string& u_id) {
        constexpr double kSecondsBetween = 0.01;
        const std::string stamp =
            practice::RSDT(Date::from_civil(2026, 1, 2), kSecondsBetween * ++additions_);
        const std::string values[] = {practice::kAddition, practice::table_code_of(kContacts),
                                      stamp, u_id};
        journal_->begin_record();
        for (std::size_t i = 0; i < noted_.size(); ++i) journal_->field_put(noted_[i], values[i]);
        const auto added = journal_->add_record(LockTry::kAtOnce, 0, Table::Leave::kUnlocked);
        expect(added == Table::Added::kDone, kBusyTable);
    }

    void put(std::size_t field) {
        const auto record = static_cast<RecordNumber>(random_.below(records_) + 1);
        table_->go_to(record);
        expect(table_->lock_record(record), kBusyRecord);
        table_->field_put(field, random_.letters(8));
        table_->unlock_all();
    }

    // Reads the identifiers on first use: workloads before that must not cost more because of them.
    const std::string& any_u_id() {
        if (u_ids_.empty()) u_ids_ = texts_of(*table_, "U_ID");
        return u_ids_[random_.below(u_ids_.size())];
    }

    void seek(const char* order, const std::string& key) {
        control(*table_, order);
        static_cast<void>(table_->seek(key, SeekMode::kSoft, SeekEnd::kFirst));
        static_cast<void>(table_->field_get(last_));
    }

    // Starts again at the top when it reaches the end.
    void walk(const char* order) {
        if (walking_ != order || table_->end_of_file()) {
            control(*table_, order);
            table_->go_top();
            walking_ = order;
        }
        for (std::size_t step = 0; step < kSteps && !table_->end_of_file(); ++step) {
            static_cast<void>(table_->field_get(last_));
            table_->skip(1);
        }
    }

    std::unique_ptr<Engine> engine_ = new_engine();
    std::unique_ptr<Table> table_;
    ContactExamples examples_;
    Counter counter_;
    std::unique_ptr<Table> journal_;
    std::size_t records_;  // at the start
    std::vector<std::string> u_ids_;
    std::size_t last_;
    std::vector<std::size_t> appended_;  // the fields that receive a value
    std::vector<std::size_t> noted_;     // likewise, of the journal
    int additions_ = 0;
    std::string walking_ = "nowhere";
    Random random_;
};

class KeyWorkload : public Workload {
  public:
    KeyWorkload(const fs::path& folder, std::size_t keys)
        : keys_(keys), path_((folder / "KEYS.DBF").string()) {
        make_table();
        table_ = open_table(*engine_, path_);
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
        expect(table_->lock_record(record), kBusyRecord);
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
    std::unique_ptr<Engine> engine_ = new_engine();
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

}  // namespace brenik::bench
