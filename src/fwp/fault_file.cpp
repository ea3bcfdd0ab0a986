// Writes the line to the fault file and the trace log.

#include "fwp/fault_file.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "fwp/trace_log.h"
#include "platform/file.h"
#include "platform/folders.h"
#include "util/bytes.h"

namespace brenik {

namespace {

// A file that can be neither renamed nor emptied grows to twice this size and then gets no more
// lines until it can be.
constexpr std::uint64_t kMostBytes = std::uint64_t{256} * 1024;
constexpr std::size_t kLongestText = 2000;
constexpr int kLockTimeout_ms = 200;

std::string local_time(platform::Clock& clock) {
    const platform::LocalDay day = clock.today();
    const int seconds = static_cast<int>(clock.seconds());
    std::array<char, 64> text;
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d:%02d", day.year, day.month,
                  day.day, seconds / 3600, seconds / 60 % 60, seconds % 60);
    return text.data();
}

// Names and values from files may hold anything; this keeps a line to one line of three columns.
std::string on_one_line(std::string_view text) {
    std::string line(text.substr(0, kLongestText));
    std::ranges::replace_if(
        line, [](char c) { return static_cast<Byte>(c) < 0x20 || c == 0x7F; }, ' ');
    return line;
}

platform::File open_fault_file(const std::string& path) {
    return platform::File::open(path, platform::OpenMode::kAppend);
}

// Only the process that holds the lock renames the file. A process that waited for the lock
// meanwhile writes to the end of the renamed file and finds a short file under the name. Without
// locks in the file system, two processes at the same moment can lose the older lines, but the file
// still stays bounded.
enum class Lock { kHeld, kBusy, kUnknown };

Lock lock(platform::File& file) {
    try {
        const bool held = file.lock_within({platform::kSharingByte, 1},
                                           platform::LockKind::kExclusive, kLockTimeout_ms);
        return held ? Lock::kHeld : Lock::kBusy;
    } catch (const platform::FileError&) {
        return Lock::kUnknown;
    }
}

void begin_anew(platform::File& full, const std::string& path) {
    if (open_fault_file(path).size_at_open() < kMostBytes) return;
    try {
        platform::replace_file(path, earlier_fault_file(path));
    } catch (const platform::FileError&) {
        full.resize(0);  // the folder may not be changed
    }
}

// Writes the line even if the lock stays busy: on most systems an append is one step.
void append(const std::string& path, const std::string& line) {
    platform::File file = open_fault_file(path);
    if (!file.is_open() && file.failure() == platform::OpenFailure::kMissing) {
        platform::make_folder_of(path);
        file = open_fault_file(path);
    }
    if (!file.is_open()) return;
    const Lock locked = lock(file);
    const std::uint64_t size = file.size();
    if (size < 2 * kMostBytes) file.write_at(size, as_bytes(line));
    if (size >= kMostBytes && locked != Lock::kBusy) begin_anew(file, path);
}

}  // namespace

std::string earlier_fault_file(const std::string& path) { return path + ".old"; }

void write_fault_line(Session& session, std::string_view call, std::string_view reason) noexcept {
    try {
        const std::string path = platform::fault_file_path();
        if (path.empty()) return;
        append(path, local_time(session.clock) + "\t" + on_one_line(call) + "\t" +
                         on_one_line(reason) + "\r\n");
    } catch (const std::exception&) {
        // The disk is full or memory has run out: the call's own code must suffice.
    }
}

void note_fault(Session& session, std::string_view call, std::string_view reason) noexcept {
    write_fault_line(session, call, reason);
    try {
        trace(session, call, reason);
    } catch (const std::exception&) {
        // Memory is too short even for the trace line: the code must suffice.
    }
}

}  // namespace brenik
