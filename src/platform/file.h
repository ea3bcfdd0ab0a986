// Files, with whole-file sharing and byte-range locks.
//
// Paths are given in the library's own form (backslashes or slashes, any case); this layer turns
// them into the system's form and, on case-sensitive systems, finds a file whatever the case of its
// name. Every open takes part in sharing: a shared open excludes exclusive opens by any process and
// an exclusive one excludes all others, as deny-all opens do on Windows. Besides the share modes of
// systems that have them, the opens hold a lock on one byte that no table uses (kSharingByte), so
// that programs of different systems exclude each other too. Of the files of one table, the table's
// own speaks for all.
//
// Byte-range locks belong to the File they were made through: two Files of one process exclude
// each other exactly as two processes do.
//
// Where a file lies on a share (share.h), the session with its server can end. Then every File on
// that share is lost: it does nothing any more but throw ConnectionLost, until it is opened again,
// and none of its locks is held any more.
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

class ShareSession;

enum class Sharing {
    kShared,
    kExclusive,
    kCovered,  // shared; the file belongs to another one that is always opened first, and whose
               // sharing byte speaks for both, unless they lie on a share
};

// Of a file that belongs to one that is open with this sharing.
constexpr Sharing covered(Sharing sharing) {
    return sharing == Sharing::kShared ? Sharing::kCovered : sharing;
}

enum class OpenMode {
    kReadOnly,
    kSettings,   // read only; anybody may read and write such a file at any time
    kReadWrite,  // must exist
    kCreate,     // made new, or emptied; read and write
    // Logs: read by anyone at any time, so they take no part in sharing. A link in the place of a
    // log is not followed but kDenied: it could lead to any file that the user may write.
    kAppendOnly,  // must exist; every write lands at the end, whatever its offset
    kAppend,      // the same, but made when missing
    kRewrite,     // made new, or emptied; write only
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
    kSharing,  // somebody else's open excludes ours
    kDenied,   // no permission, read-only medium, not a plain file, a link for a log
    kSystem,   // anything else (too many open files, I/O error)
};

enum class LockKind { kShared, kExclusive };

struct ByteRange {
    std::uint64_t offset;
    std::uint64_t length;
};

// Longest wait for the locks that are held for milliseconds only (append, index, memo).
inline constexpr int kShortLockTimeout_ms = 5000;

// Position of the sharing byte: one past the last byte that table locks may cover.
inline constexpr std::uint64_t kSharingByte = 0x7FFFFFFF;

// What the system calls its error of this number.
std::string system_text(int system_code);

// An I/O operation that failed: the text names operation, file, offset and the system's reason;
// status() is the system's number.
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

// The session with the server of a share was lost. What was being done may have been done or not.
class ConnectionLost : public FileError {
  public:
    using FileError::FileError;
    // The server does not answer: whoever tries again at once waits as long once more.
    bool unreachable() const;
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
    // As it was when the file was opened.
    std::uint64_t size_at_open() const { return size_at_open_; }
    OpenFailure failure() const { return failure_; }
    // The failure in words, without the path.
    std::string why_not_open() const;
    // The path in the system's form.
    const std::string& path() const { return path_; }
    void close() noexcept;

    bool writable() const { return mode_ != OpenMode::kReadOnly && mode_ != OpenMode::kSettings; }
    // True when the file lies on a share.
    bool remote() const { return remote_; }
    // True when the session with the share was lost since the file was opened.
    bool lost() const;
    // Opens the file again as it was opened, without any locks. Throws ConnectionLost.
    void reopen();
    // Throws ConnectionLost when the session has ended at some time since the file was opened, also
    // where the system has begun another one on its own and nothing has failed. Linux tells that of
    // SMB shares, at the cost of a call that stays on this computer; nobody else does.
    void require_same_session() const;

    // Throws EngineFault unless the file still holds what was written there, and in the same
    // session: under a lock that was lost, or where the share is cached in a way that nobody has
    // agreed on with the server, it may not. A file on this computer is not asked.
    void require_kept(std::uint64_t offset, std::span<const std::uint8_t> written) const;

    // Reads up to `buffer.size()` bytes; fewer are read only at the end of the file.
    std::size_t read_at(std::uint64_t offset, std::span<std::uint8_t> buffer) const;
    // Writes all bytes or throws FileError.
    void write_at(std::uint64_t offset, std::span<const std::uint8_t> bytes);
    // The size by now, never a remembered one: a share's may be a second old. What others have cut
    // off is not seen on a share as long as the file is open here.
    std::uint64_t size() const;
    // The size, and whether the file still goes by a name; both from one call.
    struct Standing {
        std::uint64_t size;
        bool named;
    };
    Standing standing() const;
    // Whether it does; a call only where the answer can be no.
    bool named() const;
    // False when another file, or none, goes by this one's path by now. Linux tells that, and
    // `named`, on local file systems; elsewhere both are always true.
    bool in_place() const;
    void resize(std::uint64_t size);
    // Waits until everything written through this File has reached the disk.
    void sync();

    // Tries once and answers at once. The lock must not overlap one that this File holds already.
    [[nodiscard]] bool try_lock(ByteRange range, LockKind kind = LockKind::kExclusive);
    // Repeats the try with short pauses until it succeeds or the time is over.
    [[nodiscard]] bool lock_within(ByteRange range, LockKind kind,
                                   int timeout_ms = kShortLockTimeout_ms);
    // The locks held now stay until the file is closed. They are shared ones that tell others how
    // the file is used; nothing is written on the strength of them.
    void keep_locks() { locks_ = 0; }
    // On a share a lock that cannot be given back was lost with the session.
    void unlock(ByteRange range) noexcept;

  private:
    static constexpr std::intptr_t kNoHandle = -1;

    bool takes_sharing_byte() const;
    void require_session(const char* operation, std::uint64_t offset) const;
    [[noreturn]] void fail(const char* operation, std::uint64_t offset, int system_code) const;
    bool reached_again();

    std::intptr_t handle_ = kNoHandle;
    OpenFailure failure_ = OpenFailure::kNone;
    int failure_code_ = 0;
    bool unsynced_ = false;  // something was written since the last sync
    OpenMode mode_ = OpenMode::kReadOnly;
    Sharing sharing_ = Sharing::kShared;
    std::uint64_t size_at_open_ = 0;
    int locks_ = 0;  // but those that are kept
    bool remote_ = false;
    ShareSession* session_ = nullptr;  // null until the file is opened for the first time
    unsigned losses_ = 0;              // of the session, when the file was opened
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
