// Files, with whole-file sharing and byte-range locks.
//
// Paths are given in the library's own form (backslashes or slashes, any case); this layer turns
// them into the system's form and, on case-sensitive systems, finds a file whatever the case of its
// name. Every open takes part in sharing: a shared open excludes exclusive opens by any process and
// an exclusive one excludes all others, as deny-all opens do on Windows. Besides the share modes of
// systems that have them, the opens hold a lock on one byte that no table uses (kSharingByte), so
// that programs of different systems exclude each other too.
//
// Byte-range locks belong to the File they were made through: two Files of one process exclude
// each other exactly as two processes do.
//
// A File belongs to the process that opened it. The child of a fork has closed it, which leaves the
// parent's locks as they are; using it there is FileError, unlocking and closing it do nothing.

#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "util/fault.h"

namespace brenik::platform {

enum class Sharing { kShared, kExclusive };

enum class OpenMode {
    kReadOnly,
    kReadWrite,  // must exist
    kCreate,     // made new, or emptied; read and write
    // Logs: read by anyone at any time, so they take no part in sharing. A link in the place of a
    // log is not followed but kDenied: it could lead to any file that the user may write.
    kWriteOnly,  // must exist
    kAppend,     // made when missing; every write lands at the end
    kRewrite,    // made new, or emptied; write only
};

constexpr bool is_log(OpenMode mode) {
    return mode == OpenMode::kWriteOnly || mode == OpenMode::kAppend || mode == OpenMode::kRewrite;
}

constexpr bool is_emptied(OpenMode mode) {
    return mode == OpenMode::kCreate || mode == OpenMode::kRewrite;
}

enum class OpenFailure {
    kNone,
    kMissing,  // no such file or folder
    kSharing,  // somebody else's open excludes ours
    kDenied,   // no permission, read-only medium, not a plain file, a link for a log
    kSystem,   // anything else (too many open files, I/O error)
};

enum class LockKind { kShared, kExclusive };

// Longest wait for the locks that are held for milliseconds only (append, index, memo).
inline constexpr int kShortLockTimeout_ms = 5000;

// Position of the sharing byte: one past the last byte that table locks may cover.
inline constexpr std::uint64_t kSharingByte = 0x7FFFFFFF;

// An I/O operation that failed: the text names operation, file, offset and the system's reason.
class FileError : public EngineFault {
  public:
    FileError(const std::string& operation, const std::string& path, std::uint64_t offset,
              int system_code);
    const std::string& path() const { return path_; }
    std::uint64_t offset() const { return offset_; }
    int system_code() const { return system_code_; }

  private:
    std::string path_;
    std::uint64_t offset_;
    int system_code_;
};

class File {
  public:
    File() = default;
    File(File&& other) noexcept;
    File& operator=(File&& other) noexcept;
    ~File() { close(); }

    // Opens `path`. On failure the File is not open and `failure()` tells why; nothing is thrown.
    static File open(const std::string& path, OpenMode mode, Sharing sharing = Sharing::kShared);

    bool is_open() const { return handle_ != kNoHandle; }
    OpenFailure failure() const { return failure_; }
    // The path in the system's form.
    const std::string& path() const { return path_; }
    void close() noexcept;

    // Reads up to `buffer.size()` bytes; fewer are read only at the end of the file.
    std::size_t read_at(std::uint64_t offset, std::span<std::uint8_t> buffer) const;
    // Writes all bytes or throws FileError.
    void write_at(std::uint64_t offset, std::span<const std::uint8_t> bytes);
    std::uint64_t size() const;
    // The size, and whether the file still goes by a name; both from one call.
    struct Standing {
        std::uint64_t size;
        bool named;
    };
    Standing standing() const;
    // False when another file, or none, goes by this one's path by now. Linux tells that, and
    // `named`, on local file systems; elsewhere both are always true.
    bool in_place() const;
    void resize(std::uint64_t size);
    // Waits until everything written through this File has reached the disk.
    void sync();

    // Tries once and answers at once. The lock must not overlap one that this File holds already.
    [[nodiscard]] bool try_lock(std::uint64_t offset, std::uint64_t length,
                                LockKind kind = LockKind::kExclusive);
    // Repeats the try with short pauses until it succeeds or the time is over.
    [[nodiscard]] bool lock_within(std::uint64_t offset, std::uint64_t length, LockKind kind,
                                   int timeout_ms = kShortLockTimeout_ms);
    void unlock(std::uint64_t offset, std::uint64_t length) noexcept;

  private:
    static constexpr std::intptr_t kNoHandle = -1;

    std::intptr_t handle_ = kNoHandle;
    OpenFailure failure_ = OpenFailure::kNone;
    bool unsynced_ = false;  // something was written since the last sync
    std::string path_;
};

// True when a plain file of that name exists, whatever the case of its name.
bool file_exists(const std::string& path);

// Puts the file `from` in the place of `to`, whether or not there is one, so that at every moment
// either the old or the new file goes by that name, and waits until that has reached the disk. Both
// lie in one folder; nobody may have `to` open. Throws FileError.
void replace_file(const std::string& from, const std::string& to);

// Removes the file if there is one and it can be removed.
void remove_file(const std::string& path) noexcept;

// The system's form of a library path: separators turned and, on case-sensitive systems, every
// existing component in the case in which it lies on disk; one that does not exist stays as given.
std::string system_path(const std::string& path);

// True when both system paths name the same place.
bool is_same_path(const std::string& a, const std::string& b);

}  // namespace brenik::platform
