// Measures how long the library makes workstations wait for each other.
//
// Several processes work on one fresh sample practice as fast as they can. Each adds contacts and
// edits one contact that all of them edit. The report gives the longest single call, the least and
// the most work that one process has done, and how many calls were refused after all the library's
// retries.

#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "brenikdb.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

struct Call {
    double milliseconds;
    unsigned code;
};

[[noreturn]] void give_up(const std::string& reason) {
    std::fprintf(stderr, "brenik_contention: %s\n", reason.c_str());
    std::exit(1);
}

unsigned add(int worker, std::size_t number) {
    int position = 0;
    const std::string name = "C" + std::to_string(worker) + "-" + std::to_string(number);
    unsigned code = BrenikAddStart(1, &position);
    for (const char* field : {"ID", "LAST", "CITY"}) {
        if (code == 0) code = BrenikSetField(1, 0, field, name.c_str());
    }
    char u_id[16] = "";
    return code != 0 ? code : BrenikAddEnd(1, u_id);
}

unsigned edit(std::size_t number) {
    int position = 0;
    unsigned code = BrenikEditBegin(1, 1, &position);
    const std::string phone = std::to_string(number);
    if (code == 0) code = BrenikSetField(1, 1, "DAYPHONE", phone.c_str());
    return code != 0 ? code : BrenikEditEnd(1, 1);
}

void work(const fs::path& practice, int worker, Clock::time_point begin, double seconds) {
    if (BrenikInitialize(practice.c_str(), 0, 0) != 0) give_up("a process could not start up");
    while (Clock::now() < begin) usleep(100);
    const auto end = begin + std::chrono::duration<double>(seconds);
    std::vector<Call> calls;
    for (std::size_t number = 0; Clock::now() < end; ++number) {
        const auto called = Clock::now();
        const unsigned code = number % 3 == 2 ? edit(number) : add(worker, number);
        const std::chrono::duration<double, std::milli> took = Clock::now() - called;
        calls.push_back({took.count(), code});
    }
    BrenikShutDown();
    std::ofstream report(practice / ("worker" + std::to_string(worker)));
    for (const Call& call : calls) report << call.milliseconds << ' ' << call.code << '\n';
}

void report(const fs::path& practice, int workers, double seconds) {
    std::vector<double> times;
    std::size_t least = SIZE_MAX, most = 0, refused = 0;
    for (int worker = 0; worker < workers; ++worker) {
        std::ifstream lines(practice / ("worker" + std::to_string(worker)));
        std::size_t done = 0;
        for (Call call; lines >> call.milliseconds >> call.code;) {
            times.push_back(call.milliseconds);
            call.code == 0 ? ++done : ++refused;
        }
        least = std::min(least, done);
        most = std::max(most, done);
    }
    if (times.empty()) give_up("no call was made");
    std::sort(times.begin(), times.end());
    const auto share = [&](double part) {
        return times[static_cast<std::size_t>(part * static_cast<double>(times.size() - 1))];
    };
    std::printf(
        "%d processes  %8.0f calls/s   p50 %7.2f ms   p99.9 %8.2f ms   longest %8.2f ms   "
        "least and most done %zu %zu   refused %zu\n",
        workers, static_cast<double>(times.size() - refused) / seconds, share(0.5), share(0.999),
        times.back(), least, most, refused);
    std::fflush(stdout);
}

void measure(const fs::path& practice, int workers, double seconds) {
    const auto begin = Clock::now() + std::chrono::milliseconds(500);
    for (int worker = 0; worker < workers; ++worker) {
        const pid_t child = fork();
        if (child < 0) give_up("cannot start another process");
        if (child == 0) {
            work(practice, worker, begin, seconds);
            std::exit(0);
        }
    }
    for (int status; wait(&status) > 0;) {
        if (status != 0) give_up("a process has failed");
    }
    report(practice, workers, seconds);
}

}  // namespace

int main(int argc, char** argv) try {
    CLI::App app{"Measures how processes wait for each other on one practice."};
    std::vector<int> workers = {2, 4, 8};
    double seconds = 10;
    bool proprietary = false;
    app.add_option("--processes", workers, "numbers of processes")->check(CLI::Range(1, 64));
    app.add_option("--seconds", seconds, "length of each run")->check(CLI::PositiveNumber);
    app.add_flag("--proprietary", proprietary, "in the library's own locking mode");
    CLI11_PARSE(app, argc, argv);

    setenv("BRENIK_UI", "none", 1);
    std::string name = (fs::temp_directory_path() / "brenik-contention-XXXXXX").string();
    const fs::path folder = mkdtemp(name.data());
    const fs::path tool = fs::read_symlink("/proc/self/exe").parent_path() / "brenik";
    for (const int count : workers) {
        const fs::path practice = folder / std::to_string(count);
        const std::string command =
            tool.string() + " sample " + practice.string() + " --contacts 1000 > /dev/null";
        if (std::system(command.c_str()) != 0) give_up("cannot make the sample practice");
        if (proprietary) std::ofstream(practice / "LAWSYS.INI") << "[Main]\r\nLockType=1\r\n";
        measure(practice, count, seconds);
    }
    fs::remove_all(folder);
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
