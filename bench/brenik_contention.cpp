// Measures how long processes that share one practice wait for each other.
//
// Several writers work on one fresh sample practice as fast as they can. Each adds contacts and
// edits one contact that all of them edit. With --reader, one process looks up contacts beside the
// writers. The report gives the longest single call, the least and the most work that one process
// has done, and how many calls were refused after all retries. With --peer, the same work is done
// in SQLite too.

#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "brenikdb.h"
#include "practice/catalogue.h"
#include "random.h"
#include "sqlite_store.h"
#include "tables.h"
#include "util/runtime.h"

namespace brenik::bench {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

struct Options {
    std::vector<int> writers = {2, 4, 8};
    double seconds = 10;
    std::size_t contacts = 1000;
    bool wide = false;
    bool proprietary = false;
    bool reader = false;
    bool sqlite = false;
    bool json = false;
};

struct Call {
    double milliseconds;
    bool done;
};

// One process's access to the contacts. Each function returns false if it was refused.
class Host {
  public:
    virtual ~Host() = default;
    virtual bool add(const std::string& name) = 0;
    virtual bool edit(const std::string& phone) = 0;
    virtual bool look_up(const std::string& id) = 0;
};

class LibraryHost : public Host {
  public:
    explicit LibraryHost(const fs::path& practice) {
        expect(BrenikInitialize(practice.c_str(), 0, 0) == 0, "a process could not start up");
    }
    ~LibraryHost() override { BrenikShutDown(); }

    bool add(const std::string& name) override {
        int position = 0;
        unsigned code = BrenikAddStart(1, &position);
        for (const char* field : {"ID", "LAST", "CITY"}) {
            if (code == 0) code = BrenikSetField(1, 0, field, name.c_str());
        }
        char u_id[16] = "";
        return code == 0 && BrenikAddEnd(1, u_id) == 0;
    }

    bool edit(const std::string& phone) override {
        int position = 0;
        return BrenikEditBegin(1, 1, &position) == 0 &&
               BrenikSetField(1, 1, "DAYPHONE", phone.c_str()) == 0 && BrenikEditEnd(1, 1) == 0;
    }

    bool look_up(const std::string& id) override {
        char u_id[16] = "       ";
        return BrenikGetU_ID(1, id.c_str(), u_id) == 0;
    }
};

class SqliteHost : public Host {
  public:
    explicit SqliteHost(const fs::path& database)
        : store_(database), first_(store_.texts_of("u_id").front()) {}

    bool add(const std::string& name) override {
        return unless_busy([&] { store_.add_whole({"", name, name, "", name}); });
    }
    bool edit(const std::string& phone) override {
        return unless_busy([&] {
            store_.edit_whole(store_.read_contact(first_), first_, SqliteStore::Column::kPlain,
                              phone);
        });
    }
    bool look_up(const std::string& id) override {
        return unless_busy([&] { store_.seek_id(id); });
    }

  private:
    template <typename Work>
    static bool unless_busy(Work work) {
        try {
            work();
            return true;
        } catch (const StoreBusy&) {
            return false;
        }
    }

    SqliteStore store_;
    std::string first_;
};

// The practice, and how one run works on it.
struct Run {
    fs::path practice;
    fs::path database;  // of the peer; empty for the library
    std::vector<std::string> ids;
    int writers;
    double seconds;

    std::unique_ptr<Host> host() const {
        if (database.empty()) return std::make_unique<LibraryHost>(practice);
        return std::make_unique<SqliteHost>(database);
    }
    fs::path report_of(int process) const {
        return practice / ("process" + std::to_string(process));
    }
};

constexpr int kReader = -1;  // the number of the process that reads

void work(const Run& run, int process, Clock::time_point begin) {
    const std::unique_ptr<Host> host = run.host();
    while (Clock::now() < begin) usleep(100);
    const auto end = begin + std::chrono::duration<double>(run.seconds);
    Random random;
    std::vector<Call> calls;
    for (std::size_t number = 0; Clock::now() < end; ++number) {
        const std::string text = std::to_string(number);
        const auto called = Clock::now();
        const bool done = process == kReader ? host->look_up(run.ids[random.below(run.ids.size())])
                          : number % 3 == 2  ? host->edit(text)
                                            : host->add("C" + std::to_string(process) + "-" + text);
        const std::chrono::duration<double, std::milli> took = Clock::now() - called;
        calls.push_back({took.count(), done});
    }
    std::ofstream report(run.report_of(process), std::ios::binary);
    report.write(reinterpret_cast<const char*>(calls.data()),
                 static_cast<std::streamsize>(calls.size() * sizeof(Call)));
}

std::vector<Call> calls_of(const Run& run, int process) {
    const fs::path path = run.report_of(process);
    std::vector<Call> calls(fs::file_size(path) / sizeof(Call));
    std::ifstream(path, std::ios::binary)
        .read(reinterpret_cast<char*>(calls.data()),
              static_cast<std::streamsize>(calls.size() * sizeof(Call)));
    return calls;
}

// What the processes from `first` to before `end` have done together.
nlohmann::ordered_json summary(const Run& run, int first, int end) {
    std::vector<double> times;
    std::size_t least = SIZE_MAX, most = 0, all_done = 0;
    for (int process = first; process < end; ++process) {
        std::size_t done = 0;
        for (const Call& call : calls_of(run, process)) {
            times.push_back(call.milliseconds);
            if (call.done) ++done;
        }
        least = std::min(least, done);
        most = std::max(most, done);
        all_done += done;
    }
    expect(!times.empty(), "no call was made");
    std::sort(times.begin(), times.end());
    const auto share = [&](double part) {
        return times[static_cast<std::size_t>(part * static_cast<double>(times.size() - 1))];
    };
    return {{"calls_per_s", static_cast<double>(all_done) / run.seconds},
            {"p50_ms", share(0.5)},
            {"p999_ms", share(0.999)},
            {"longest_ms", times.back()},
            {"least", least},
            {"most", most},
            {"refused", times.size() - all_done}};
}

void run_processes(const Run& run, bool reader) {
    const auto begin = Clock::now() + std::chrono::milliseconds(500);
    for (int process = reader ? kReader : 0; process < run.writers; ++process) {
        const pid_t child = fork();
        expect(child >= 0, "cannot start another process");
        if (child == 0) {
            work(run, process, begin);
            std::_Exit(0);
        }
    }
    for (int status; wait(&status) > 0;) expect(status == 0, "a process has failed");
}

void print(const char* who, const char* what, const nlohmann::ordered_json& figures) {
    std::printf(
        "%-8s %-12s %8.0f calls/s   p50 %7.3f ms   p99.9 %8.2f ms   longest %8.2f ms   "
        "least and most done %zu %zu   refused %zu\n",
        who, what, figures["calls_per_s"].get<double>(), figures["p50_ms"].get<double>(),
        figures["p999_ms"].get<double>(), figures["longest_ms"].get<double>(),
        figures["least"].get<std::size_t>(), figures["most"].get<std::size_t>(),
        figures["refused"].get<std::size_t>());
    std::fflush(stdout);
}

void make_practice(const fs::path& practice, const Options& options) {
    make_sample(practice, options.contacts, options.wide);
    if (!options.proprietary) return;
    std::ofstream(practice / practice::kSettingsFile) << "[Main]\r\nLockType=1\r\n";
}

// On a fresh practice for each run.
nlohmann::ordered_json measure(const fs::path& practice, int writers, bool sqlite,
                               const Options& options) {
    make_practice(practice, options);
    Run run{practice, {}, {}, writers, options.seconds};
    {
        const auto engine = new_engine();
        run.ids = texts_of(*open_table(*engine, practice / practice::kNames.file), "ID");
    }
    for (std::string& id : run.ids) id = trim_right(id);
    if (sqlite) {
        run.database = practice / "peer.db";
        SqliteStore::make(practice, run.database);
    }
    run_processes(run, options.reader);
    const char* who = sqlite ? "sqlite" : "ours";
    const std::string what = std::to_string(writers) + (writers == 1 ? " writer" : " writers");
    nlohmann::ordered_json row{{"who", who}, {"writers", writers}};
    if (writers > 0) {
        row["written"] = summary(run, 0, writers);
        if (!options.json) print(who, what.c_str(), row["written"]);
    }
    if (options.reader) {
        row["read"] = summary(run, kReader, kReader + 1);
        if (!options.json) print(who, "  reader", row["read"]);
    }
    fs::remove_all(practice);
    return row;
}

void run(const Options& options) {
    std::string name = (fs::temp_directory_path() / "brenik-contention-XXXXXX").string();
    const fs::path folder = mkdtemp(name.data());
    auto rows = nlohmann::ordered_json::array();
    for (const int writers : options.writers) {
        rows.push_back(measure(folder / "practice", writers, false, options));
        if (options.sqlite) rows.push_back(measure(folder / "practice", writers, true, options));
    }
    fs::remove_all(folder);
    if (options.json) std::printf("%s\n", rows.dump(2).c_str());
}

}  // namespace
}  // namespace brenik::bench

int main(int argc, char** argv) try {
    CLI::App app{"Measures how processes wait for each other on one practice."};
    brenik::bench::Options options;
    app.add_option("--processes", options.writers, "numbers of writers")->check(CLI::Range(0, 64));
    app.add_flag("--reader", options.reader, "with one process that looks up contacts");
    app.add_option("--seconds", options.seconds, "length of each run")->check(CLI::PositiveNumber);
    app.add_option("--contacts", options.contacts, "contacts of the practice");
    app.add_flag("--wide", options.wide, "contacts of 45 fields, 738 bytes a record");
    app.add_flag("--proprietary", options.proprietary, "in the library's own locking mode");
    app.add_option("--peer", options.sqlite, "the same in SQLite too: sqlite")
        ->transform(CLI::CheckedTransformer(std::map<std::string, bool>{{"sqlite", true}}));
    app.add_flag("--json", options.json, "print the figures as JSON");
    CLI11_PARSE(app, argc, argv);
    setenv("BRENIK_UI", "none", 1);
    brenik::bench::run(options);
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
