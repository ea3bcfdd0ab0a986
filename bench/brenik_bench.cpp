// Measures what hosts' everyday operations cost: processor time, elapsed time and calls on files.
//
// workload.h lists the operations. Each is run in slices, and the slice with the least time counts:
// other programs only ever add to it. Writes go to the system and do not wait for the disk. With
// --peer, the same operation in SQLite (sqlite_store.h), or the operation's calls on files alone
// (call_replay.h), run in turn with the library's own slices. With --round-trip, every call on a
// file takes longer, as on a share. With --whole, work on a whole table is measured (whole_runs.h).
//
// With --count, only the calls on files are counted, by kind. All random choices are seeded, so
// counts repeat to within a few hundredths: the change journal's index is ordered by time.
// counts.py compares them with the baseline.

#include <gnu/libc-version.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "call_replay.h"
#include "measuring.h"
#include "platform/file_calls.h"
#include "sqlite_store.h"
#include "tables.h"
#include "whole_runs.h"
#include "workload.h"

namespace brenik::bench {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;
using platform::FileCallCounts;
using platform::kFileCallNames;

constexpr std::size_t kCountedWarmUp = 100;
constexpr std::size_t kRounds = 20;
constexpr std::string_view kSqlite = "sqlite", kFloor = "floor";

struct Options {
    std::vector<std::size_t> contacts = {10000, 100000};
    std::size_t operations = 5000;
    std::size_t keys = 1000000;
    std::set<std::string> only;
    std::set<std::string> peers;
    unsigned round_trip_us = 0;
    bool wide = false;
    bool whole = false;
    bool count = false;
    bool json = false;
    std::string alone;  // a whole run that this process is to make
    std::string place;

    bool peer(std::string_view name) const { return peers.contains(std::string(name)); }
};

// Calls on files per operation, in the order of FileCall.
using Calls = std::array<double, kFileCallNames.size()>;

double sum(const Calls& calls) {
    double all = 0;
    for (const double count : calls) all += count;
    return all;
}

struct Result {
    std::string name;
    std::size_t records;  // in the table at the start of the workload
    std::size_t operations;
    Calls calls{};
    double p99_us = 0;
    Cost ours{};
    std::optional<Cost> sqlite{}, floor{};
};

// The tables of one size, with what the peers need.
struct Place {
    std::size_t records;
    std::unique_ptr<Workload> sqlite;
    std::unique_ptr<Replay> replay;
};

// Measures one operation, and its peers in turn with it.
class Measurement {
  public:
    Measurement(const Operation& operation, Place& place) : operation_(operation), place_(place) {
        contenders_.push_back(
            {"ours", [this](std::size_t runs) { run_ours(runs); }, [this] { begin_ours(); }});
        if (place_.replay) {
            contenders_.push_back({std::string(kFloor),
                                   [this](std::size_t) { place_.replay->run(recording_); },
                                   [this] { begin_floor(); }});
        }
        if (!place_.sqlite) return;
        for (const Operation& same : place_.sqlite->operations()) {
            if (same.name != operation.name) continue;
            contenders_.push_back({std::string(kSqlite), [same](std::size_t runs) {
                                       for (std::size_t i = 0; i < runs; ++i) same.run();
                                   }});
        }
    }

    Result measured(std::size_t warm_up, const Rounds& rounds) {
        run_each(contenders_, warm_up);
        counts_ = {};
        times_us_.clear();
        const std::vector<Cost> costs = costs_in_turn(contenders_, rounds);
        const std::size_t operations = rounds.rounds * rounds.runs * rounds.batch;
        Result result{operation_.name, place_.records, operations};
        for (std::size_t kind = 0; kind < counts_.size(); ++kind) {
            result.calls[kind] =
                static_cast<double>(counts_[kind]) / static_cast<double>(operations);
        }
        for (std::size_t i = 0; i < costs.size(); ++i) {
            if (contenders_[i].name == kSqlite) result.sqlite = costs[i];
            if (contenders_[i].name == kFloor && replayable_) result.floor = costs[i];
        }
        if (!replayable_) {
            std::fprintf(stderr, "%s: no floor, because not all of its calls can be replayed\n",
                         operation_.name.c_str());
        }
        result.ours = costs.front();
        std::sort(times_us_.begin(), times_us_.end());
        result.p99_us =
            times_us_[(times_us_.size() - 1) * 99 / 100] / static_cast<double>(operation_.batch);
        return result;
    }

  private:
    using Clock = std::chrono::steady_clock;

    void begin_ours() {
        if (place_.replay) start_recording(recording_);
    }

    // What it recorded is not replayed if calls are missing in it.
    void begin_floor() {
        replayable_ = stop_recording() && replayable_;
        if (!replayable_) recording_ = {};
        place_.replay->prepare(recording_);
    }

    void run_ours(std::size_t runs) {
        const FileCallCounts before = platform::file_call_counts;
        auto begin = Clock::now();
        for (std::size_t i = 0; i < runs; ++i) {
            operation_.run();
            const auto end = Clock::now();
            times_us_.push_back(std::chrono::duration<double, std::micro>(end - begin).count());
            begin = end;
        }
        for (std::size_t kind = 0; kind < counts_.size(); ++kind) {
            counts_[kind] += platform::file_call_counts[kind] - before[kind];
        }
    }

    const Operation& operation_;
    Place& place_;
    std::vector<Contender> contenders_;
    Recording recording_;
    FileCallCounts counts_{};
    std::vector<double> times_us_;
    bool replayable_ = true;
};

std::string thousands(std::size_t records) {
    return records % 1000 == 0 ? std::to_string(records / 1000) + "k" : std::to_string(records);
}

void print_heading(const Json& environment, const Options& options) {
    std::printf("compiler %s, %s build, commits handed to the system (not waiting for the disk)\n",
                environment["compiler"].get<std::string>().c_str(),
                environment["build"].get<std::string>().c_str());
    if (!options.count) return;
    std::printf("%-28s", "calls on files per operation");
    for (const char* kind : kFileCallNames) std::printf("%7s", kind);
    std::printf("%8s\n", "all");
}

void print_peer(const char* name, const Cost& ours, const std::optional<Cost>& peer) {
    if (!peer) return;
    std::printf("   %s %8.2f us (%.2f of it)", name, peer->processor_us,
                ours.processor_us / peer->processor_us);
}

void print(const Result& r, const Options& options) {
    std::printf("%-12s records %-6s ", r.name.c_str(), thousands(r.records).c_str());
    if (options.count) {
        std::printf("  ");
        for (const double calls : r.calls) std::printf("%7.2f", calls);
        std::printf("%8.2f\n", sum(r.calls));
        return;
    }
    std::printf("%9.2f us/op   elapsed %9.2f us   p99 %9.2f us   %6.2f calls", r.ours.processor_us,
                r.ours.elapsed_us, r.p99_us, sum(r.calls));
    print_peer("SQLite", r.ours, r.sqlite);
    print_peer("calls alone", r.ours, r.floor);
    std::printf("\n");
    std::fflush(stdout);
}

Json to_json(const Cost& cost) {
    return {{"processor_us", cost.processor_us}, {"elapsed_us", cost.elapsed_us}};
}

Json to_json(const Result& r, const Options& options) {
    Json json{{"name", r.name}, {"records", r.records}, {"operations", r.operations}};
    Json& calls = json["calls"] = Json::object();
    for (std::size_t kind = 0; kind < r.calls.size(); ++kind) {
        if (r.calls[kind] != 0) calls[kFileCallNames[kind]] = r.calls[kind];
    }
    calls["all"] = sum(r.calls);
    if (options.count) return json;
    json["ours"] = to_json(r.ours);
    json["ours"]["p99_us"] = r.p99_us;
    if (r.sqlite) json[kSqlite] = to_json(*r.sqlite);
    if (r.floor) json[kFloor] = to_json(*r.floor);
    return json;
}

// What the system reports about the first processor: a program may run other code on another one.
std::string processor() {
    std::string text, line;
    std::ifstream facts("/proc/cpuinfo");
    while (std::getline(facts, line) && !line.empty()) {
        for (const char* key : {"model name", "cpu family", "model\t", "stepping"}) {
            if (!line.starts_with(key)) continue;
            text += (text.empty() ? "" : " ") + line.substr(line.find(':') + 2);
        }
    }
    return text;
}

// What instruction counts depend on, apart from the source.
Json environment() {
#ifdef __clang__
    const char* compiler = __VERSION__;
#else
    const char* compiler = "GCC " __VERSION__;
#endif
    return {{"compiler", compiler},
            {"build", BRENIK_BUILD_TYPE},
            {"c_library", gnu_get_libc_version()},
            {"processor", processor()}};
}

// A folder for the tables, removed by the destructor.
class Scratch {
  public:
    Scratch() {
        std::string name = (fs::temp_directory_path() / "brenik-bench-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) give_up("cannot create a temporary folder");
        folder_ = name;
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    ~Scratch() { fs::remove_all(folder_); }

    const fs::path& folder() const { return folder_; }

    fs::path practice(std::size_t contacts, bool wide) const {
        fs::path practice = folder_ / std::to_string(contacts);
        make_sample(practice, contacts, wide);
        return practice;
    }

  private:
    fs::path folder_;
};

// Collects the results and prints them: as they come, or as JSON at the end.
class Report {
  public:
    explicit Report(const Options& options) : options_(options) {
        if (!options.json) print_heading(environment(), options);
    }

    void add(const Result& result) {
        if (!options_.json) print(result, options_);
        results_.push_back(to_json(result, options_));
    }

    void add_whole(const char* who, const char* name, std::size_t records, const Json& figures) {
        if (!options_.json) {
            std::printf("%-8s %-8s records %-6s %s\n", who, name, thousands(records).c_str(),
                        figures.dump().c_str());
        }
        Json row{{"name", name}, {"who", who}, {"records", records}};
        row.update(figures);
        whole_.push_back(row);
    }

    void finish() const {
        if (results_.empty() && whole_.empty()) give_up("no operation has that name");
        if (!options_.json) return;
        const Json all{{"environment", environment()}, {"results", results_}, {"whole", whole_}};
        std::printf("%s\n", all.dump(2).c_str());
    }

  private:
    const Options& options_;
    Json results_ = Json::array();
    Json whole_ = Json::array();
};

void measure(Workload& workload, Place& place, const Options& options, Report& report) {
    for (const Operation& operation : workload.operations()) {
        if (!options.only.empty() && !options.only.contains(operation.name)) continue;
        std::size_t runs = std::max<std::size_t>(options.operations / operation.batch, 1);
        if (operation.most != 0) runs = std::min(runs, operation.most);
        const std::size_t rounds = options.count ? 1 : std::min(kRounds, runs);
        std::size_t warm_up = options.count ? kCountedWarmUp / operation.batch : runs / 10;
        if (operation.most != 0) warm_up = 1;
        Measurement measurement(operation, place);
        delay_file_calls(options.round_trip_us);
        report.add(measurement.measured(warm_up, {rounds, runs / rounds, operation.batch}));
        delay_file_calls(0);
    }
}

void measure_operations(const Options& options, Report& report) {
    const Scratch scratch;
    const fs::path database = scratch.folder() / "peer.db", copy = scratch.folder() / "copy";
    for (const std::size_t contacts : options.contacts) {
        const fs::path practice = scratch.practice(contacts, options.wide);
        Place place{contacts, nullptr, nullptr};
        if (options.peer(kSqlite)) {
            fs::remove(database);
            SqliteStore::make(practice, database);
            place.sqlite = sqlite_workload(database, practice);
        }
        if (options.peer(kFloor)) place.replay = std::make_unique<Replay>(practice, copy);
        measure(*host_workload(practice), place, options, report);
        measure(*seam_workload(practice), place, options, report);
    }
    if (options.keys == 0) return;
    Place place{options.keys, nullptr, nullptr};
    measure(*key_workload(scratch.folder(), options.keys), place, options, report);
}

void measure_whole_runs(const Options& options, Report& report) {
    constexpr int kTimes = 3;
    const Scratch scratch;
    for (const std::size_t contacts : options.contacts) {
        const fs::path practice = scratch.practice(contacts, options.wide);
        if (options.peer(kSqlite)) SqliteStore::make(practice, practice / kPeerFile);
        for (const char* name : kWholeRuns) {
            report.add_whole("ours", name, contacts,
                             run_whole_apart({name, false}, practice, kTimes));
            if (!options.peer(kSqlite)) continue;
            report.add_whole("sqlite", name, contacts,
                             run_whole_apart({name, true}, practice, kTimes));
        }
    }
}

void run(const Options& options) {
    if (!options.alone.empty()) {
        const WholeRun whole{options.alone, options.peer(kSqlite)};
        std::printf("%s\n", run_whole(whole, options.place).dump().c_str());
        return;
    }
    if (std::string_view(BRENIK_BUILD_TYPE) != "Release") {
        std::fprintf(stderr, "warning: this is a %s build; times of it mean nothing\n",
                     BRENIK_BUILD_TYPE);
    }
    if (options.round_trip_us != 0 && options.peer(kSqlite)) {
        give_up("a write-ahead log needs shared memory, which a share does not have");
    }
    Report report(options);
    options.whole ? measure_whole_runs(options, report) : measure_operations(options, report);
    report.finish();
}

}  // namespace
}  // namespace brenik::bench

// Catches exceptions, so that the temporary folder is removed.
int main(int argc, char** argv) try {
    CLI::App app{"Measures the library on sample practices."};
    brenik::bench::Options options;
    app.add_option("--contacts", options.contacts, "numbers of contacts, one per practice");
    app.add_flag("--wide", options.wide, "contacts of 45 fields, 738 bytes a record");
    app.add_option("--operations", options.operations, "operations of each kind")
        ->check(CLI::PositiveNumber);
    app.add_option("--keys", options.keys,
                   "records of the table whose keys are counted; 0 skips it");
    app.add_option("--only", options.only, "only the operations of these names");
    app.add_option("--peer", options.peers, "also the same in SQLite, or the calls on files alone")
        ->check(CLI::IsMember({"sqlite", "floor"}));
    app.add_option("--round-trip", options.round_trip_us,
                   "microseconds that every call on a file takes in addition");
    app.add_flag("--whole", options.whole, "work on whole tables instead: time and memory");
    app.add_flag("--count", options.count, "count calls on files instead of taking times");
    app.add_flag("--json", options.json, "print the figures as JSON");
    app.add_option("--alone", options.alone)->group("");  // a run of --whole in its own process
    app.add_option("--in", options.place)->group("");
    CLI11_PARSE(app, argc, argv);
    brenik::bench::run(options);
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
