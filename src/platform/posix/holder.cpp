// Finds the holders of a lock in Linux's /proc/PID/fdinfo/FD, which has one line per lock:
//     lock:	1: OFDLCK  ADVISORY  WRITE -1 08:02:131090 2147483647 2147483647
// The device in the line can differ from the one of stat(). So the inode's number selects the line,
// and stat() of the descriptor confirms the file.

#include "platform/holder.h"

#include <dirent.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <chrono>
#include <fstream>
#include <functional>
#include <limits>
#include <memory>
#include <sstream>

namespace brenik::platform {

namespace {

using Deadline = std::chrono::steady_clock::time_point;

constexpr std::chrono::milliseconds kLongestSearch{500};
constexpr int kMostNamed = 3;

struct Wanted {
    struct stat file;
    ByteRange range;
    LockKind kind;
};

// Calls `visit` with every name in the folder that is a number, until it returns false.
void for_each_number(const std::string& folder,
                     const std::function<bool(const std::string&)>& visit) {
    const std::unique_ptr<DIR, int (*)(DIR*)> open(opendir(folder.c_str()), closedir);
    while (const dirent* entry = open ? readdir(open.get()) : nullptr) {
        const std::string name = entry->d_name;
        if (name.find_first_not_of("0123456789") == std::string::npos && !visit(name)) return;
    }
}

std::uint64_t number_in(std::string_view text) {
    std::uint64_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

bool excludes(const std::string& line, const Wanted& wanted) {
    if (!line.starts_with("lock:")) return false;
    std::istringstream words(line.substr(5));
    std::string number, kind, manner, type, process, place, first, last;
    words >> number >> kind >> manner >> type >> process >> place >> first >> last;
    if (last.empty() || kind == "FLOCK") return false;
    if (type != "WRITE" && wanted.kind == LockKind::kShared) return false;
    const std::uint64_t end =
        last == "EOF" ? std::numeric_limits<std::uint64_t>::max() : number_in(last);
    return number_in(std::string_view(place).substr(place.rfind(':') + 1)) == wanted.file.st_ino &&
           number_in(first) < wanted.range.offset + wanted.range.length &&
           end >= wanted.range.offset;
}

bool holds(const std::string& process, const std::string& descriptor, const Wanted& wanted) {
    const std::string link = process + "/fd/" + descriptor;
    std::ifstream facts(process + "/fdinfo/" + descriptor);
    for (std::string line; std::getline(facts, line);) {
        struct stat file;
        if (excludes(line, wanted) && stat(link.c_str(), &file) == 0 &&
            file.st_ino == wanted.file.st_ino && file.st_dev == wanted.file.st_dev) {
            return true;
        }
    }
    return false;
}

std::string user_of(const std::string& process) {
    struct stat facts;
    if (stat(process.c_str(), &facts) != 0) return {};
    std::array<char, 4096> texts;
    passwd account;
    passwd* found = nullptr;
    getpwuid_r(facts.st_uid, &account, texts.data(), texts.size(), &found);
    return found != nullptr ? found->pw_name : std::to_string(facts.st_uid);
}

std::string description(const std::string& number) {
    if (number == std::to_string(getpid())) return "this process itself";
    const std::string process = "/proc/" + number;
    std::string name;
    std::getline(std::ifstream(process + "/comm"), name);
    return name + " (process " + number + ", user " + user_of(process) + ")";
}

}  // namespace

std::string lock_holders(const std::string& path, ByteRange range, LockKind wanted_kind) {
    Wanted wanted{{}, range, wanted_kind};
    if (stat(path.c_str(), &wanted.file) != 0) return {};
    const Deadline deadline = std::chrono::steady_clock::now() + kLongestSearch;
    std::string found;
    int named = 0;
    for_each_number("/proc", [&](const std::string& number) {
        const std::string process = "/proc/" + number;
        bool holder = false;
        for_each_number(process + "/fdinfo", [&](const std::string& descriptor) {
            holder = holds(process, descriptor, wanted);
            return !holder && std::chrono::steady_clock::now() < deadline;
        });
        if (holder) {
            found += (named++ == 0 ? "" : ", ") + description(number);
        }
        return named < kMostNamed && std::chrono::steady_clock::now() < deadline;
    });
    return found;
}

}  // namespace brenik::platform
