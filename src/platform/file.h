// Files, with whole-file sharing and byte-range locks.
//
// Callers pass paths in the library's own form (backslashes or slashes, any case). This layer
// converts them to the system's form and, on case-sensitive systems, finds a file whatever the case
// of its name. Every open takes part in sharing: a shared open excludes exclusive opens by any
// process, and an exclusive open excludes all others, as deny-all opens do on Windows. Systems with
// share modes use those. In addition every open locks one byte that no table uses (kSharingByte),
// so that programs on different systems exclude each other too. A table's own file takes that lock
// for its other files.
//
// Byte-range locks belong to the File that acquired them: two Files of one process exclude each
// other exactly as two processes do.
//
// The session with the server of a share (share.h) can end. Then every File on that share is lost:
// none of its locks counts any more, and every use but unlock() throws ConnectionLost until
// reopen().
//
// A File belongs to the process that opened it. In the child of a fork it is closed, and the
// parent's locks stay held; using it there throws FileError, unlocking and closing it do nothing.

#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "util/fault.h"

namespace brenik::platform {

class ShareSession;

enum class Sharing {
    kShared,
    kExclusive,
    kCovered,  // shared; for a file whose table's own file is always opened first and locks the
               // sharing byte for both, unless they lie on a share
};

// The sharing of a file whose main file is open with `sharing`.
constexpr Sharing covered(Sharing sharing) {
    return sharing == Sharing::kShared ? Sharing::kCovered : sharing;
}

enum class OpenMode {
    kReadOnly,
    kSettings,   // read only; others may read and write such a file at any time
    kReadWrite,  // must exist
    kCreate,     // created or emptied; read and write
    // Logs may be read by any program at any time, so they take no part in sharing. A link in the
    // place of a log is kDenied, not followed: it could lead to any file that the user may write.
    kAppendOnly,  // must exist; every write lands at the end, whatever its offset
    kAppend,      // like kAppendOnly, but creates a missing file
    kRewrite,     // created or emptied; write only
};

constexpr bool is_log(OpenMode mode) {
    return mode == OpenMode::kAppendOnly || mode == OpenMode::kAppend || mode == OpenMode::kRewrite;
}

constexpr bool is_emptied(OpenMode mode) {
    return mode == OpenMode::kCreate || mode == OpenMode::kRewrite;
}

enum class OpenFailure {
    kNone,
    kMissing,  // no such file or folder
    kSharing,  // another open excludes this one
    kDenied,   // no permission, read-only medium, not a plain file, a link in the place of a log
    kSystem,   // anything else (too many open files, I/O error)
};

enum class LockKind { kShared, kExclusive };

struct ByteRange {
    std::uint64_t offset;
    std::uint64_t length;
};

// Timeout for the locks that are held for milliseconds only (append, index, memo).
inline constexpr int kShortLockTimeout_ms = 5000;

// Position of the sharing byte: one past the last byte that table locks may cover.
inline constexpr std::uint64_t kSharingByte = 0x7FFFFFFF;

// The system's text for an error number.
std::string system_text(int system_code);

// A failed I/O operation. The text names operation, file, offset and the system's reason; status()
// is the system's error number.
class FileError : public EngineFault {
  public:
    FileError(const std::string& operation, const std::string& path, std::uint64_t offset,
              int system_code);
    const std::string& path() const { return path_; }
    std::uint64_t offset() const { return offset_; }

  private:
    std::string path_;
    std::uint64_t offset_;
};

// The session with the server of a share was lost. The operation may or may not have taken effect.
class ConnectionLost : public FileError {
  public:
    using FileError::FileError;
    // True if the server does not answer: an immediate retry would wait just as long again.
    bool unreachable() const;
};

class File {
  public:
    File() = default;
    File(File&& other) noexcept;
    File& operator=(File&& other) noexcept;
    ~File() { close(); }

    // Opens `path`. On failure the File is not open and `failure()` gives the reason; throws
    // nothing.
    static File open(const std::string& path, OpenMode mode, Sharing sharing = Sharing::kShared);

    bool is_open() const { return handle_ != kNoHandle; }
    // The size at the moment of the open.
    std::uint64_t size_at_open() const { return size_at_open_; }
    OpenFailure failure() const { return failure_; }
    // The reason for the failure, without the path.
    std::string why_not_open() const;
    // The path in the system's form.
    const std::string& path() const { return path_; }
    void close() noexcept;

    bool writable() const { return mode_ != OpenMode::kReadOnly && mode_ != OpenMode::kSettings; }
    // True when the file lies on a share.
    bool remote() const { return remote_; }
    // True if the session with the share was lost after the file was opened.
    bool lost() const;
    // Opens the file again in the same way, without any locks. Throws ConnectionLost.
    void reopen();
    // Throws ConnectionLost if the session has ended since the file was opened, even if the system
    // has started a new one and no call has failed. Only Linux detects this, on SMB shares, with a
    // call that stays on this computer.
    void require_same_session() const;

    // Throws EngineFault unless the file still holds `written` at `offset`, in the same session. It
    // may not after a lock was lost, or if the share is cached without an agreement with the
    // server. Does nothing for a file on this computer.
    void require_kept(std::uint64_t offset, std::span<const std::uint8_t> written) const;

    // Reads up to `buffer.size()` bytes, fewer only at the end of the file.
    std::size_t read_at(std::uint64_t offset, std::span<std::uint8_t> buffer) const;
    // Writes all bytes or throws FileError.
    void write_at(std::uint64_t offset, std::span<const std::uint8_t> bytes);
    // The current size. On a share it is never a cached one, which can be a second old, but it does
    // not show what others have truncated while the file is open here.
    std::uint64_t size() const;
    // The size, and whether the file still has a name; both from one call.
    struct Standing {
        std::uint64_t size;
        bool named;
    };
    Standing standing() const;
    // Whether the file still has a name. Makes a call only where the answer can be no.
    bool named() const;
    // False if another file, or none, is now at this file's path. Only Linux detects this, and a
    // missing name, on local file systems; elsewhere both functions always return true.
    bool in_place() const;
    void resize(std::uint64_t size);
    // Waits until everything written through this File is on the disk.
    void sync();

    // Tries once and returns at once. The range must not overlap one that this File already holds.
    [[nodiscard]] bool try_lock(ByteRange range, LockKind kind = LockKind::kExclusive);
    // Retries with short pauses; false on timeout.
    [[nodiscard]] bool lock_within(ByteRange range, LockKind kind,
                                   int timeout_ms = kShortLockTimeout_ms);
    // True if another File holds a lock of either kind on a byte of the range. Locks nothing, so it
    // delays nobody. Returns nothing where the system gives no proof: on Windows, on a share, and
    // if the call fails.
    std::optional<bool> is_locked(ByteRange range) const;
    // The same, but waits until nobody holds such a lock. True if that takes longer.
    std::optional<bool> stays_locked(ByteRange range, int timeout_ms) const;
    // Keeps the locks held now until the file is closed. They are shared locks that show others how
    // the file is used; no write depends on them.
    void keep_locks() { locks_ = 0; }
    // On a share, a failed unlock means that the session, and so the lock, was lost. A lock that
    // was lost is unlocked too: the system may have acquired it again when it reconnected. Nothing
    // is sent to a server that does not answer.
    void unlock(ByteRange range) noexcept;

  private:
    static constexpr std::intptr_t kNoHandle = -1;

    bool takes_sharing_byte() const;
    void require_session(const char* operation, std::uint64_t offset) const;
    [[noreturn]] void fail(const char* operation, std::uint64_t offset, int system_code) const;
    bool reached_again();
    bool is_out_of_reach() const;
    void unlocked(bool was_lost, int system_code) noexcept;

    std::intptr_t handle_ = kNoHandle;
    OpenFailure failure_ = OpenFailure::kNone;
    int failure_code_ = 0;
    bool unsynced_ = false;  // bytes were written since the last sync
    OpenMode mode_ = OpenMode::kReadOnly;
    Sharing sharing_ = Sharing::kShared;
    std::uint64_t size_at_open_ = 0;
    int locks_ = 0;  // number of held locks, without those kept by keep_locks()
    bool remote_ = false;
    ShareSession* session_ = nullptr;  // null until the first open
    unsigned losses_ = 0;              // losses of the session at the time of the open
    std::string path_;
};

// True if a plain file of that name exists, in any case.
bool file_exists(const std::string& path);

// Renames `from` to `to`, which need not exist. At every moment the name belongs to the old file or
// the new one. Returns when the change is on the disk. Both paths must be in one folder and nobody
// may have `to` open. Throws FileError.
void replace_file(const std::string& from, const std::string& to);

// Removes the file, if it exists and can be removed.
void remove_file(const std::string& path) noexcept;

// Converts a library path to the system's form: turns separators and, on case-sensitive systems,
// gives every existing component the case of its name on disk. A component that does not exist
// stays as it is.
std::string system_path(const std::string& path);

// True if both system paths name the same file or folder.
bool is_same_path(const std::string& a, const std::string& b);

}  // namespace brenik::platform
