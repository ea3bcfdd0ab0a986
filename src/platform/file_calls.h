// Counts this process's calls on files, by kind.
//
// On a file share every call on a file is a round trip to the server. Unlike a time, a count is the
// same on every machine. Only the benchmark counts: it links posix/file.cpp compiled with
// BRENIK_COUNT_FILE_CALLS. In the library itself count() does nothing.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace brenik::platform {

// Searching a folder for a name counts as an open.
enum class FileCall { kOpen, kClose, kStat, kRead, kWrite, kLock, kUnlock, kSync, kResize };

inline constexpr std::array kFileCallNames{"open", "close",  "stat", "read",  "write",
                                           "lock", "unlock", "sync", "resize"};

using FileCallCounts = std::array<std::uint64_t, kFileCallNames.size()>;

#ifdef BRENIK_COUNT_FILE_CALLS
// Calls since the process began, in the order of FileCall.
inline FileCallCounts file_call_counts{};

// Called before each call, if set: the benchmark delays calls as the way to a server does.
inline void (*before_file_call)() = nullptr;

inline void count(FileCall call) {
    ++file_call_counts[static_cast<std::size_t>(call)];
    if (before_file_call != nullptr) before_file_call();
}
#else
inline void count(FileCall) {}
#endif

}  // namespace brenik::platform
