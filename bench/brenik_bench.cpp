// How long the library takes for what hosts do all day.
//
// Benchmarks, each on a fresh sample practice of every size asked for:
//   start-up     BrenikInitialize: seven tables and their indexes opened
//   seek-id      BrenikGetU_ID: a contact's identifier by its ID
//   edit-start   BrenikEditStart: a contact found by identifier and read into the buffer
//   edit-end     a whole edit: EditStart, two SetField, EditEnd (lock, write, journal entry)
//   add-end      a whole add: AddStart, five SetField, AddEnd (counter, record, keys, journal
//   entry) scan-order   every contact in the order of its identifiers, one field read scan-file
//   every contact in the order of the file, one field read
// The first five go through the twelve functions, as a host does; the scans use the engine. A
// warm-up of a tenth of the operations is not counted.
//
// And on one table of --keys records, whose keys lie in no order:
//   first-count  the keys counted after the index has changed: the headers of all leaves are read
//   key-count    the keys counted within scopes somewhere
//   key-number   the number of a record's key, the record gone to by its number
//   skip-far     from the top to a key by its number, then back by half as many
//   walk-order   one record of a walk from the top, to compare: reaching the middle without
//                counting takes half as many of these as there are keys

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <vector>

#include "brenikdb.h"
#include "engine/local/create.h"
#include "engine/local/local_engine.h"
#include "engine/local/table_writer.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

struct Contact {
    std::string id;
    std::string u_id;
};

struct Result {
    std::string name;
    std::size_t contacts;
    std::size_t operations;
    double mean_us;
    double p50_us;
    double p99_us;
};

[[noreturn]] void give_up(const std::string& reason) {
    std::fprintf(stderr, "brenik_bench: %s\n", reason.c_str());
    std::exit(1);
}

double microseconds_since(Clock::time_point begin) {
    return std::chrono::duration<double, std::micro>(Clock::now() - begin).count();
}

// Times every operation but for a warm-up of a tenth.
Result timed(const char* name, std::size_t size, std::size_t operations,
             const std::function<void()>& operation) {
    for (std::size_t i = 0; i < operations / 10; ++i) operation();
    std::vector<double> times;
    times.reserve(operations);
    double total = 0;
    for (std::size_t i = 0; i < operations; ++i) {
        const auto begin = Clock::now();
        operation();
        times.push_back(microseconds_since(begin));
        total += times.back();
    }
    std::sort(times.begin(), times.end());
    const std::size_t last = times.size() - 1;
    return {name,
            size,
            operations,
            total / static_cast<double>(operations),
            times[last / 2],
            times[last * 99 / 100]};
}

void expect_success(unsigned code, const char* call) {
    if (code != 0) give_up(std::string(call) + " answered " + std::to_string(code));
}

// Keys by number, in one large order.
class KeyBench {
  public:
    KeyBench(const fs::path& folder, std::size_t keys, std::size_t operations)
        : keys_(keys), operations_(operations), path_((folder / "KEYS.DBF").string()) {
        make_table();
        table_ = engine_.open(path_, brenik::TableSharing::kShared);
        if (!table_) give_up("the table of keys cannot be opened");
    }

    std::vector<Result> run() {
        measure("first-count", std::min<std::size_t>(operations_, 20), [&] {
            change_a_key();
            expect(table_->key_count(1, KeySet::kWhole), keys_, "keys");
        });
        measure("key-count", operations_, [&] { count_in_scopes(); });
        measure("key-number", operations_, [&] {
            table_->go_to(any_record());
            if (table_->key_number(1, KeySet::kWhole) == 0) give_up("a record without a key");
        });
        measure("skip-far", operations_, [&] { skip_far(); });
        table_->go_top();
        measure("walk-order", keys_ / 2, [&] { table_->skip(1); });
        return results_;
    }

  private:
    using KeySet = brenik::KeySet;

    void make_table() {
        brenik::local::TableLayout layout;
        brenik::local::Field key;
        key.name = "K";
        key.width = kKeyWidth;
        layout.fields = {key};
        brenik::local::TableWriter writer(path_, layout);
        for (std::size_t i = 0; i < keys_; ++i) writer.append({some_key()});
        writer.close();
        brenik::local::create_index(path_, {{"K", "K"}});
    }

    std::string some_key() {
        std::string key(kKeyWidth, 'A');
        for (char& letter : key) letter = static_cast<char>('A' + random_() % 26);
        return key;
    }

    brenik::RecordNumber any_record() {
        return static_cast<brenik::RecordNumber>(random_() % keys_ + 1);
    }

    static void expect(std::size_t found, std::size_t wanted, const char* what) {
        if (found != wanted) {
            give_up(std::to_string(found) + " " + what + " instead of " + std::to_string(wanted));
        }
    }

    void change_a_key() {
        const brenik::RecordNumber record = any_record();
        table_->go_to(record);
        if (!table_->lock_record(record)) give_up("a record of the bench's own is locked");
        table_->field_put(1, some_key());
        table_->unlock_all();
    }

    void count_in_scopes() {
        const std::string top = some_key();
        table_->set_scope(brenik::ScopeEnd::kTop, top);
        table_->set_scope(brenik::ScopeEnd::kBottom, top.substr(0, 1));
        (void)table_->key_count(1, KeySet::kVisible);
        table_->set_scope(brenik::ScopeEnd::kTop, {});
        table_->set_scope(brenik::ScopeEnd::kBottom, {});
    }

    void skip_far() {
        const std::size_t number = random_() % keys_ + 1;
        table_->go_top();
        table_->skip(static_cast<std::int64_t>(number) - 1);
        expect(table_->key_number(1, KeySet::kWhole), number, "is the key's number");
        table_->skip(-static_cast<std::int64_t>(number / 2));
    }

    void measure(const char* name, std::size_t operations, const std::function<void()>& operation) {
        results_.push_back(timed(name, keys_, operations, operation));
    }

    static constexpr std::uint32_t kKeyWidth = 10;

    std::size_t keys_;
    std::size_t operations_;
    std::string path_;
    brenik::local::LocalEngine engine_;
    std::unique_ptr<brenik::Table> table_;
    std::mt19937 random_{2026};
    std::vector<Result> results_;
};

class Bench {
  public:
    Bench(fs::path practice, std::size_t contacts, std::size_t operations)
        : practice_(std::move(practice)), contacts_(contacts), operations_(operations) {}

    std::vector<Result> run() {
        read_contacts();
        measure("start-up", 5, [&] { expect_success(start_up(), "BrenikInitialize"); });
        measure("seek-id", operations_, [&] { seek_id(); });
        measure("edit-start", operations_, [&] { edit_start(); });
        measure("edit-end", operations_, [&] { edit(); });
        measure("add-end", operations_, [&] { add(); });
        BrenikShutDown();
        scan("scan-order", "U_ID");
        scan("scan-file", "");
        return results_;
    }

  private:
    unsigned start_up() { return BrenikInitialize(practice_.c_str(), 0, 0); }

    const Contact& any_contact() { return known_[random_() % known_.size()]; }

    void seek_id() {
        char u_id[16] = "       ";
        expect_success(BrenikGetU_ID(1, any_contact().id.c_str(), u_id), "BrenikGetU_ID");
    }

    void edit_start() {
        int position = 0;
        expect_success(BrenikEditStart(1, any_contact().u_id.c_str(), &position),
                       "BrenikEditStart");
    }

    void edit() {
        edit_start();
        const std::string phone = std::to_string(random_() % 10000000);
        expect_success(BrenikSetField(1, 0, "DAYPHONE", phone.c_str()), "BrenikSetField");
        expect_success(BrenikSetField(1, 0, "CITY", "Salem"), "BrenikSetField");
        expect_success(BrenikEditEnd(1, 0), "BrenikEditEnd");
    }

    void add() {
        int position = 0;
        expect_success(BrenikAddStart(1, &position), "BrenikAddStart");
        const std::string number = std::to_string(random_());
        for (const auto& [name, value] : {std::pair<const char*, std::string>{"ID", "B" + number},
                                          {"LAST", "Bench " + number},
                                          {"FIRST", "Anna"},
                                          {"CITY", "Salem"},
                                          {"DAYPHONE", number}}) {
            expect_success(BrenikSetField(1, 0, name, value.c_str()), "BrenikSetField");
        }
        char u_id[16] = "";
        expect_success(BrenikAddEnd(1, u_id), "BrenikAddEnd");
    }

    static std::size_t position_of(const brenik::Table& table, const std::string& name) {
        for (std::size_t i = 0; i < table.fields().size(); ++i) {
            if (table.fields()[i].name == name) return i + 1;
        }
        give_up("the sample's contacts have no field " + name);
    }

    std::unique_ptr<brenik::Table> open_contacts() {
        auto table = engine_.open((practice_ / "LAW1").string(), brenik::TableSharing::kShared);
        if (!table) give_up("the contacts of the sample cannot be opened");
        return table;
    }

    void read_contacts() {
        const auto table = open_contacts();
        const std::size_t id = position_of(*table, "ID"), u_id = position_of(*table, "U_ID");
        table->set_order("");
        for (table->go_top(); !table->end_of_file(); table->skip(1)) {
            if (!table->deleted()) {
                known_.push_back({table->field_get(id).text(), table->field_get(u_id).text()});
            }
        }
    }

    void scan(const char* name, const char* order) {
        const auto table = open_contacts();
        const std::size_t last = position_of(*table, "LAST");
        if (!table->set_order(order)) give_up(std::string("the contacts have no order ") + order);
        std::size_t read = 0;
        const auto begin = Clock::now();
        for (table->go_top(); !table->end_of_file(); table->skip(1)) {
            read += table->field_get(last).text().empty() ? 0 : 1;
        }
        const double mean =
            microseconds_since(begin) / static_cast<double>(std::max<std::size_t>(read, 1));
        results_.push_back({name, contacts_, read, mean, mean, mean});
    }

    void measure(const char* name, std::size_t operations, const std::function<void()>& operation) {
        results_.push_back(timed(name, contacts_, operations, operation));
    }

    fs::path practice_;
    std::size_t contacts_;
    std::size_t operations_;
    brenik::local::LocalEngine engine_;
    std::mt19937 random_{2026};
    std::vector<Contact> known_;
    std::vector<Result> results_;
};

std::string thousands(std::size_t contacts) {
    return contacts % 1000 == 0 ? std::to_string(contacts / 1000) + "k" : std::to_string(contacts);
}

void print_text(const std::vector<Result>& results) {
    for (const Result& r : results) {
        std::printf("%-11s records %-6s %9.2f us/op %10.0f op/s   p50 %8.2f us   p99 %8.2f us\n",
                    r.name.c_str(), thousands(r.contacts).c_str(), r.mean_us, 1e6 / r.mean_us,
                    r.p50_us, r.p99_us);
    }
}

void print_json(const std::vector<Result>& results) {
    nlohmann::json list = nlohmann::json::array();
    for (const Result& r : results) {
        list.push_back({{"name", r.name},
                        {"contacts", r.contacts},
                        {"operations", r.operations},
                        {"mean_us", r.mean_us},
                        {"p50_us", r.p50_us},
                        {"p99_us", r.p99_us}});
    }
    std::printf("%s\n", list.dump(2).c_str());
}

fs::path make_practice(const fs::path& tool, const fs::path& folder, std::size_t contacts) {
    const fs::path practice = folder / std::to_string(contacts);
    const std::string command = tool.string() + " sample " + practice.string() + " --contacts " +
                                std::to_string(contacts) + " > /dev/null";
    if (std::system(command.c_str()) != 0) give_up("the sample practice could not be made");
    return practice;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"Measures the library on sample practices."};
    std::vector<std::size_t> sizes = {10000, 100000};
    std::size_t operations = 5000;
    std::size_t keys = 1000000;
    bool json = false;
    app.add_option("--contacts", sizes, "numbers of contacts in the practice");
    app.add_option("--operations", operations, "operations of each kind")
        ->check(CLI::PositiveNumber);
    app.add_option("--keys", keys, "records of the table whose keys are counted; 0 leaves it out");
    app.add_flag("--json", json, "print the figures as JSON");
    CLI11_PARSE(app, argc, argv);

    std::string name = (fs::temp_directory_path() / "brenik-bench-XXXXXX").string();
    const fs::path folder = mkdtemp(name.data());
    const fs::path tool = fs::read_symlink("/proc/self/exe").parent_path() / "brenik";
    if (!json) {
        std::printf(
            "compiler %s, %s build, commits handed to the system (not waiting for the disk)\n",
            __VERSION__, BRENIK_BUILD_TYPE);
    }
    std::vector<Result> all;
    for (const std::size_t contacts : sizes) {
        const std::vector<Result> results =
            Bench(make_practice(tool, folder, contacts), contacts, operations).run();
        if (!json) print_text(results);
        all.insert(all.end(), results.begin(), results.end());
    }
    if (keys > 0) {
        const std::vector<Result> results = KeyBench(folder, keys, operations).run();
        if (!json) print_text(results);
        all.insert(all.end(), results.begin(), results.end());
    }
    if (json) print_json(all);
    fs::remove_all(folder);
    return 0;
}
