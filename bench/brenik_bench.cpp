// Measures how long hosts' everyday operations take, and how many calls on files they make.
//
// workload.h lists the operations. Without options, each operation, or each batch of quick ones, is
// timed after a warm-up; writes go to the system and do not wait for the disk. With --count, the
// calls on files are counted instead, by kind, also after a warm-up. All random choices are seeded,
// so counts repeat to within a few hundredths: the change journal's index is ordered by time.
// counts.py compares them with the baseline.

#include <gnu/libc-version.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "platform/file_calls.h"
#include "workload.h"

namespace brenik::bench {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using Json = nlohmann::ordered_json;
using platform::FileCallCounts;
using platform::kFileCallNames;

constexpr std::size_t kCountedWarmUp = 100;

struct Options {
    std::vector<std::size_t> contacts = {10000, 100000};
    std::size_t operations = 5000;
    std::size_t keys = 1000000;
    std::set<std::string> only;
    bool count = false;
    bool json = false;
};

struct Times {
    double mean_us;
    double p50_us;
    double p99_us;
};

// Calls on files per operation, in the order of FileCall.
using Calls = std::array<double, kFileCallNames.size()>;

struct Result {
    std::string name;
    std::size_t records;  // in the table at the start of the workload
    std::size_t operations;
    Times times;
    Calls calls;
};

void repeat(const Operation& operation, std::size_t runs) {
    for (std::size_t i = 0; i < runs; ++i) operation.run();
}

Times timed(const Operation& operation, std::size_t runs) {
    repeat(operation, runs / 10);
    std::vector<double> times;
    times.reserve(runs);
    double total = 0;
    for (std::size_t i = 0; i < runs; ++i) {
        const auto begin = Clock::now();
        operation.run();
        const double us = std::chrono::duration<double, std::micro>(Clock::now() - begin).count();
        times.push_back(us / static_cast<double>(operation.batch));
        total += times.back();
    }
    std::sort(times.begin(), times.end());
    return {total / static_cast<double>(runs), times[(runs - 1) / 2], times[(runs - 1) * 99 / 100]};
}

Calls counted(const Operation& operation, std::size_t runs) {
    const std::size_t warm_up = kCountedWarmUp / operation.batch;
    repeat(operation, operation.most == 0 ? warm_up : 1);
    const FileCallCounts before = platform::file_call_counts;
    repeat(operation, runs);
    Calls calls{};
    for (std::size_t kind = 0; kind < calls.size(); ++kind) {
        calls[kind] = static_cast<double>(platform::file_call_counts[kind] - before[kind]) /
                      static_cast<double>(runs * operation.batch);
    }
    return calls;
}

std::vector<Result> measure(Workload& workload, std::size_t records, const Options& options) {
    std::vector<Result> results;
    for (const Operation& operation : workload.operations()) {
        if (!options.only.empty() && !options.only.contains(operation.name)) continue;
        std::size_t runs = std::max<std::size_t>(options.operations / operation.batch, 1);
        if (operation.most != 0) runs = std::min(runs, operation.most);
        Result result{operation.name, records, runs * operation.batch, {}, {}};
        if (options.count) {
            result.calls = counted(operation, runs);
        } else {
            result.times = timed(operation, runs);
        }
        results.push_back(result);
    }
    return results;
}

double sum(const Calls& calls) {
    double all = 0;
    for (const double count : calls) all += count;
    return all;
}

void print_heading(const Json& environment, bool count) {
    std::printf("compiler %s, %s build, commits handed to the system (not waiting for the disk)\n",
                environment["compiler"].get<std::string>().c_str(),
                environment["build"].get<std::string>().c_str());
    if (!count) return;
    std::printf("%-27s", "calls on files per operation");
    for (const char* kind : kFileCallNames) std::printf("%7s", kind);
    std::printf("%8s\n", "all");
}

std::string thousands(std::size_t records) {
    return records % 1000 == 0 ? std::to_string(records / 1000) + "k" : std::to_string(records);
}

void print(const Result& r, bool count) {
    std::printf("%-11s records %-6s ", r.name.c_str(), thousands(r.records).c_str());
    if (count) {
        std::printf("  ");
        for (const double calls : r.calls) std::printf("%7.2f", calls);
        std::printf("%8.2f\n", sum(r.calls));
    } else {
        std::printf("%9.2f us/op %10.0f op/s   p50 %8.2f us   p99 %8.2f us\n", r.times.mean_us,
                    1e6 / r.times.mean_us, r.times.p50_us, r.times.p99_us);
    }
}

Json to_json(const Result& r, bool count) {
    Json json{{"name", r.name}, {"records", r.records}, {"operations", r.operations}};
    if (count) {
        Json& calls = json["calls"];
        for (std::size_t kind = 0; kind < r.calls.size(); ++kind) {
            if (r.calls[kind] != 0) calls[kFileCallNames[kind]] = r.calls[kind];
        }
        calls["all"] = sum(r.calls);
    } else {
        json["mean_us"] = r.times.mean_us;
        json["p50_us"] = r.times.p50_us;
        json["p99_us"] = r.times.p99_us;
    }
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

    fs::path practice(std::size_t contacts) const {
        fs::path practice = folder_ / std::to_string(contacts);
        const fs::path tool = fs::read_symlink("/proc/self/exe").parent_path() / "brenik";
        const std::string command = tool.string() + " sample " + practice.string() +
                                    " --contacts " + std::to_string(contacts) + " > /dev/null";
        if (std::system(command.c_str()) != 0) give_up("cannot make the sample practice");
        return practice;
    }

  private:
    fs::path folder_;
};

void run(const Options& options) {
    const Scratch scratch;
    Json list = Json::array();
    if (!options.json) print_heading(environment(), options.count);
    const auto measured = [&](std::unique_ptr<Workload> workload, std::size_t records) {
        for (const Result& result : measure(*workload, records, options)) {
            if (!options.json) print(result, options.count);
            list.push_back(to_json(result, options.count));
        }
    };
    for (const std::size_t contacts : options.contacts) {
        const fs::path practice = scratch.practice(contacts);
        measured(host_workload(practice), contacts);
        measured(seam_workload(practice), contacts);
    }
    if (options.keys > 0) measured(key_workload(scratch.folder(), options.keys), options.keys);
    if (list.empty()) give_up("no operation has that name");
    if (options.json) {
        const Json all{{"environment", environment()}, {"results", list}};
        std::printf("%s\n", all.dump(2).c_str());
    }
}

}  // namespace
}  // namespace brenik::bench

// Catches exceptions, so that the temporary folder is removed.
int main(int argc, char** argv) try {
    CLI::App app{"Measures the library on sample practices."};
    brenik::bench::Options options;
    app.add_option("--contacts", options.contacts, "numbers of contacts, one per practice");
    app.add_option("--operations", options.operations, "operations of each kind")
        ->check(CLI::PositiveNumber);
    app.add_option("--keys", options.keys,
                   "records of the table whose keys are counted; 0 skips it");
    app.add_option("--only", options.only, "only the operations of these names");
    app.add_flag("--count", options.count, "count calls on files instead of taking times");
    app.add_flag("--json", options.json, "print the figures as JSON");
    CLI11_PARSE(app, argc, argv);
    brenik::bench::run(options);
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
