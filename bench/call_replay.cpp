// Records the library's calls on files, and repeats them on a copy.

#include "call_replay.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <numeric>

#include "platform/file_calls.h"
#include "tables.h"

namespace brenik::bench {

namespace fs = std::filesystem;

namespace {

Recording* recorder = nullptr;
std::uint64_t counted_at_start = 0;

std::uint64_t counted() {
    const auto& counts = platform::file_call_counts;
    return std::accumulate(counts.begin(), counts.end(), std::uint64_t{0});
}

bool is_lock(int command) { return command == F_OFD_SETLK || command == F_OFD_GETLK; }

}  // namespace
}  // namespace brenik::bench

// The linker determines these names.
// NOLINTBEGIN(readability-identifier-naming)
extern "C" {

using brenik::bench::RecordedCall;
using Kind = RecordedCall::Kind;

ssize_t __real_pread(int descriptor, void* buffer, std::size_t length, off_t offset);
ssize_t __real_pwrite(int descriptor, const void* buffer, std::size_t length, off_t offset);
int __real_fcntl(int descriptor, int command, ...);
int __real_fstat(int descriptor, struct stat* facts);
int __real_stat(const char* path, struct stat* facts);

ssize_t __wrap_pread(int descriptor, void* buffer, std::size_t length, off_t offset) {
    if (auto* to = brenik::bench::recorder) {
        to->calls.push_back({Kind::kRead, 0, 0, descriptor, offset, length});
    }
    return __real_pread(descriptor, buffer, length, offset);
}

ssize_t __wrap_pwrite(int descriptor, const void* buffer, std::size_t length, off_t offset) {
    if (auto* to = brenik::bench::recorder) {
        to->calls.push_back({Kind::kWrite, 0, 0, descriptor, offset, length});
    }
    return __real_pwrite(descriptor, buffer, length, offset);
}

int __wrap_fcntl(int descriptor, int command, ...) {
    va_list list;
    va_start(list, command);
    void* argument = va_arg(list, void*);
    va_end(list);
    auto* to = brenik::bench::recorder;
    if (to != nullptr && brenik::bench::is_lock(command)) {
        const auto* range = static_cast<const struct flock*>(argument);
        to->calls.push_back({Kind::kLock, range->l_type, command, descriptor, range->l_start,
                             static_cast<std::size_t>(range->l_len)});
    }
    return __real_fcntl(descriptor, command, argument);
}

int __wrap_fstat(int descriptor, struct stat* facts) {
    if (auto* to = brenik::bench::recorder) {
        to->calls.push_back({Kind::kStat, 0, 0, descriptor, 0, 0});
    }
    return __real_fstat(descriptor, facts);
}

int __wrap_stat(const char* path, struct stat* facts) {
    if (auto* to = brenik::bench::recorder) {
        to->calls.push_back({Kind::kStatPath, 0, 0, static_cast<int>(to->paths.size()), 0, 0});
        to->paths.emplace_back(path);
    }
    return __real_stat(path, facts);
}

}  // extern "C"
// NOLINTEND(readability-identifier-naming)

namespace brenik::bench {

void start_recording(Recording& recording) {
    recording.calls.clear();
    recording.paths.clear();
    counted_at_start = counted();
    recorder = &recording;
}

bool stop_recording() {
    const std::size_t recorded = recorder->calls.size();
    recorder = nullptr;
    return recorded == counted() - counted_at_start;
}

Replay::Replay(fs::path original, fs::path copy)
    : original_(std::move(original)), copy_(std::move(copy)) {
    fs::copy(original_, copy_, fs::copy_options::recursive);
}

Replay::~Replay() {
    for (const auto& [path, descriptor] : open_) close(descriptor);
    fs::remove_all(copy_);
}

fs::path Replay::copy_of(const fs::path& path) const {
    return copy_ / path.lexically_relative(original_);
}

int Replay::descriptor_for(int original) {
    const fs::path path = fs::read_symlink("/proc/self/fd/" + std::to_string(original));
    const auto known = open_.find(path);
    if (known != open_.end()) return known->second;
    const int descriptor = open(copy_of(path).c_str(), O_RDWR | O_CLOEXEC);
    expect(descriptor >= 0, "cannot open the copy of a recorded file");
    return open_[path] = descriptor;
}

void Replay::prepare(Recording& recording) {
    std::map<int, int> replayed;
    std::size_t longest = 0;
    for (RecordedCall& call : recording.calls) {
        if (call.kind == Kind::kStatPath) continue;
        if (call.kind != Kind::kLock) longest = std::max(longest, call.length);
        const auto known = replayed.find(call.descriptor);
        call.descriptor = known != replayed.end()
                              ? known->second
                              : replayed[call.descriptor] = descriptor_for(call.descriptor);
    }
    for (std::string& path : recording.paths) path = copy_of(path).string();
    buffer_.resize(std::max(buffer_.size(), longest));
}

void Replay::run(const Recording& recording) {
    struct stat facts;
    for (const RecordedCall& call : recording.calls) {
        if (platform::before_file_call != nullptr) platform::before_file_call();
        switch (call.kind) {
            case Kind::kRead:
                expect(__real_pread(call.descriptor, buffer_.data(), call.length, call.offset) >= 0,
                       "a recorded read fails");
                break;
            case Kind::kWrite:
                expect(
                    __real_pwrite(call.descriptor, buffer_.data(), call.length, call.offset) >= 0,
                    "a recorded write fails");
                break;
            case Kind::kLock: {
                struct flock range = {};
                range.l_type = call.lock_type;
                range.l_whence = SEEK_SET;
                range.l_start = call.offset;
                range.l_len = static_cast<off_t>(call.length);
                expect(__real_fcntl(call.descriptor, call.lock_command, &range) == 0,
                       "a recorded lock fails");
                break;
            }
            case Kind::kStat:
                __real_fstat(call.descriptor, &facts);
                break;
            case Kind::kStatPath:
                __real_stat(recording.paths[static_cast<std::size_t>(call.descriptor)].c_str(),
                            &facts);
                break;
        }
    }
}

}  // namespace brenik::bench
