// Files on POSIX systems, with the sharing rules of Windows.
//
// Locks are open-file-description locks: they belong to one open, not to the process. Two opens in
// one process exclude each other, and closing one keeps the locks of the other. Sharing is a lock
// on kSharingByte, held from open to close: shared for a shared open, exclusive for an exclusive
// one. A file without any write permission is read-only for everybody, the superuser included, like
// a file with the read-only attribute on Windows.

#include "platform/file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <ctime>
#include <limits>
#include <memory>
#include <new>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/file_calls.h"
#include "platform/posix/descriptors.h"
#include "platform/process.h"
#include "platform/share.h"
#include "util/runtime.h"

namespace brenik::platform {

static_assert(sizeof(off_t) == 8, "files need 64-bit offsets");

namespace {

// A handle holds the descriptor in its low bits and the generation of the opening process above
// them. So a child recognises its parent's handles: it has closed their descriptors, and the system
// may have reused the numbers for other files.
std::intptr_t handle_of(int descriptor) {
    return static_cast<std::intptr_t>(std::uintptr_t{process_generation()} << kDescriptorBits |
                                      static_cast<std::uintptr_t>(descriptor));
}

// Returns -1 for a file that a parent opened: the system refuses every operation on descriptor -1.
int descriptor(std::intptr_t handle) {
    const int number = static_cast<int>(handle & ((1 << kDescriptorBits) - 1));
    return handle == handle_of(number) ? number : -1;
}

// O_NONBLOCK matters only until check_plain_file(): a named pipe must not block the open.
int open_flags(OpenMode mode, Sharing sharing) {
    constexpr int kAlways = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    switch (mode) {
        case OpenMode::kSettings:
            return kAlways | O_RDONLY;
        case OpenMode::kReadOnly:
            // The system grants a write lock only on a descriptor that is open for writing.
            return kAlways | (sharing == Sharing::kExclusive ? O_RDWR : O_RDONLY);
        case OpenMode::kReadWrite:
            return kAlways | O_RDWR;
        case OpenMode::kCreate:
            return kAlways | O_RDWR | O_CREAT;
        case OpenMode::kAppendOnly:
            return kAlways | O_WRONLY | O_NOFOLLOW | O_APPEND;
        case OpenMode::kAppend:
            return kAlways | O_WRONLY | O_NOFOLLOW | O_APPEND | O_CREAT;
        case OpenMode::kRewrite:
            return kAlways | O_WRONLY | O_NOFOLLOW | O_CREAT;
    }
    return kAlways | O_RDONLY;
}

OpenFailure failure_of(int system_code) {
    switch (system_code) {
        case ENOENT:
        case ENOTDIR:
        case ENAMETOOLONG:
        case ELOOP:
            return OpenFailure::kMissing;
        case EACCES:
        case EPERM:
        case EROFS:
        case EISDIR:
        case ETXTBSY:
        case ENXIO:
            return OpenFailure::kDenied;
        default:
            return OpenFailure::kSystem;
    }
}

// Never returns a standard descriptor. In a host that has closed its standard error, a table could
// otherwise get that descriptor, and the next message would be written into it.
int open_above_standard(const std::string& path, int flags) {
    int handle = -1;
    do {
        count(FileCall::kOpen);
        handle = ::open(path.c_str(), flags, 0666);
    } while (handle < 0 && errno == EINTR);
    if (handle < 0 || handle > STDERR_FILENO) return handle;
    const int moved = fcntl(handle, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int code = errno;
    ::close(handle);
    errno = code;
    return moved;
}

int open_descriptor(const std::string& path, int flags) {
    const ForksWait step;
    const int handle = open_above_standard(path, flags);
    if (handle < 0 || note_descriptor(handle)) return handle;
    ::close(handle);
    errno = EMFILE;
    return -1;
}

void close_descriptor(int handle) {
    const ForksWait step;
    forget_descriptor(handle);
    count(FileCall::kClose);
    // Not repeated after EINTR: the descriptor is already closed, and another thread may reuse its
    // number.
    ::close(handle);
}

// Sets a lock (F_OFD_SETLK), or describes in `lock` one that is in its way (F_OFD_GETLK). Returns 0
// or the system's error number.
int call_lock(int handle, int command, ByteRange bytes, struct flock& lock) {
    constexpr auto kEnd = static_cast<std::uint64_t>(std::numeric_limits<off_t>::max());
    if (bytes.offset > kEnd || bytes.length > kEnd - bytes.offset) return EOVERFLOW;
    lock.l_whence = SEEK_SET;
    lock.l_start = static_cast<off_t>(bytes.offset);
    lock.l_len = static_cast<off_t>(bytes.length);
    count(lock.l_type == F_UNLCK ? FileCall::kUnlock : FileCall::kLock);
    while (fcntl(handle, command, &lock) != 0) {
        if (errno != EINTR) return errno;
    }
    return 0;
}

// Returns 0 or the system's error number.
int set_lock(int handle, ByteRange bytes, short type) {
    struct flock lock = {};
    lock.l_type = type;
    return call_lock(handle, F_OFD_SETLK, bytes, lock);
}

bool is_conflict(int system_code) { return system_code == EAGAIN || system_code == EACCES; }

OpenFailure check_plain_file(const struct stat& facts, int flags) {
    if (!S_ISREG(facts.st_mode)) return OpenFailure::kDenied;
    const bool writing = (flags & O_ACCMODE) != O_RDONLY;
    const bool read_only = (facts.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0;
    return writing && read_only ? OpenFailure::kDenied : OpenFailure::kNone;
}

// Returns 0 or the system's error number.
int share(int handle, Sharing sharing) {
    return set_lock(handle, {kSharingByte, 1}, sharing == Sharing::kExclusive ? F_WRLCK : F_RDLCK);
}

off_t checked_offset(std::uint64_t offset, std::uint64_t length, const char* operation,
                     const std::string& path) {
    constexpr auto kEnd = static_cast<std::uint64_t>(std::numeric_limits<off_t>::max());
    if (offset > kEnd || length > kEnd - offset) throw FileError(operation, path, offset, EFBIG);
    return static_cast<off_t>(offset);
}

// On a network file system the server determines link counts and file numbers, so they prove
// nothing.
ShareSession::Kind kind_of(int handle) {
    struct statfs facts;
    count(FileCall::kStat);
    if (fstatfs(handle, &facts) != 0) return ShareSession::Kind::kLocal;
    const auto type = static_cast<std::uint32_t>(facts.f_type);
    constexpr std::array<std::uint32_t, 3> kSmb = {0x0000517B, 0xFF534D42, 0xFE534D42};
    constexpr std::array<std::uint32_t, 7> kOthers = {
        0x00006969,                          // NFS
        0x65735546,                          // FUSE, which may hide a network file system
        0x01021997,                          // 9P
        0x00C36400,                          // Ceph
        0x5346414F, 0x73757245, 0x0000564C,  // AFS, Coda, NCP
    };
    if (std::ranges::find(kSmb, type) != kSmb.end()) return ShareSession::Kind::kSmb;
    const bool other = std::ranges::find(kOthers, type) != kOthers.end();
    return other ? ShareSession::Kind::kOther : ShareSession::Kind::kLocal;
}

void pause_for(std::chrono::microseconds duration) {
    const std::timespec pause = {0, static_cast<long>(duration.count()) * 1000};
    nanosleep(&pause, nullptr);  // if a signal interrupts it, the next try comes sooner
}

// Shortens the pause by up to a half, at random, so that two waiters do not collide repeatedly.
std::chrono::microseconds with_jitter(std::chrono::microseconds pause) {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    const auto half = pause / 2;
    return half + std::chrono::microseconds(now.count() / 16 % (half.count() + 1));
}

bool exists(const std::string& path) {
    struct stat facts;
    count(FileCall::kStat);
    return stat(path.c_str(), &facts) == 0;
}

// The name in `folder` that equals `name` except for case; the first in byte order, empty if none.
std::string name_in_any_case(const std::string& folder, std::string_view name) {
    count(FileCall::kOpen);
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(opendir(folder.c_str()), closedir);
    std::string found;
    if (listing == nullptr) return found;
    while (const dirent* entry = readdir(listing.get())) {
        const std::string_view candidate = entry->d_name;
        if (!equal_ignoring_case(candidate, name)) continue;
        if (found.empty() || candidate < found) found = candidate;
    }
    return found;
}

// False for a text that the system accepts as the path of no file; a search for it is pointless.
bool is_possible_path(const std::string& path) {
    return !path.empty() && path.size() < PATH_MAX && path.find('\0') == std::string::npos;
}

// Collapses repeated separators, so that one file has one name here.
std::string with_slashes(std::string path) {
    std::replace(path.begin(), path.end(), '\\', '/');
    path.erase(
        std::unique(path.begin(), path.end(), [](char a, char b) { return a == '/' && b == '/'; }),
        path.end());
    return path;
}

// Gives each component of `path` the case of its name on disk, up to the first that does not exist.
std::string found_path(const std::string& path) {
    std::string found = path.front() == '/' ? "/" : "";
    std::size_t start = path.find_first_not_of('/');
    while (start < path.size()) {
        const std::size_t end = std::min(path.find('/', start), path.size());
        const std::string name = path.substr(start, end - start);
        if (exists(found + name)) {
            found += name;
        } else {
            const std::string other = name_in_any_case(found.empty() ? "." : found, name);
            if (other.empty()) return found + path.substr(start);
            found += other;
        }
        start = std::min(path.find_first_not_of('/', end), path.size());
        if (end < path.size()) found += '/';
    }
    return found;
}

// Opens an existing file whatever the case of its name; sets `path` to the name on disk.
int open_found(std::string& path, int flags) {
    const int handle = open_descriptor(path, flags);
    if (handle >= 0 || (flags & O_CREAT) != 0 || (errno != ENOENT && errno != ENOTDIR)) {
        return handle;
    }
    std::string found = found_path(path);
    if (found == path) return handle;
    path = std::move(found);
    return open_descriptor(path, flags);
}

// On a share each try is a call to the server, so tries are fewer and pauses longer. Elsewhere the
// tries before the first pause take some 20 us, as long as the lock of an index is held: a pause
// would take longer, and a reader would spend most of its time in them. The first pause only yields
// the processor, to a holder that was preempted on it.
template <class Try>
bool succeeds_within(int timeout_ms, bool remote, Try attempt) {
    using namespace std::chrono;
    const int tries_without_pause = remote ? 1 : 40;
    const microseconds longest_pause(remote ? 8000 : 250);

    for (int i = 0; i < tries_without_pause; ++i) {
        if (attempt()) return true;
    }
    const auto deadline = steady_clock::now() + milliseconds(timeout_ms);
    microseconds pause(remote ? 1000 : 50);
    for (bool yields = !remote;; yields = false) {
        const auto left = duration_cast<microseconds>(deadline - steady_clock::now());
        if (left.count() <= 0) return false;
        if (yields) {
            sched_yield();
        } else {
            pause_for(std::min(with_jitter(pause), left));
            pause = std::min(pause * 2, longest_pause);
        }
        if (attempt()) return true;
    }
}

}  // namespace

std::string system_text(int system_code) { return std::generic_category().message(system_code); }

File File::open(const std::string& path, OpenMode mode, Sharing sharing) {
    File file;
    const int flags = open_flags(mode, sharing);
    file.path_ = (flags & O_CREAT) != 0 ? system_path(path) : with_slashes(path);
    file.failure_ = OpenFailure::kMissing;
    if (!is_possible_path(file.path_)) return file;

    const int handle = open_found(file.path_, flags);
    if (handle < 0) {
        file.failure_ = is_log(mode) && errno == ELOOP ? OpenFailure::kDenied : failure_of(errno);
        const bool no_plain_file = errno == EISDIR || errno == ENXIO || errno == ELOOP;
        file.failure_code_ = no_plain_file ? 0 : errno;
        return file;
    }
    file.handle_ = handle_of(handle);
    file.mode_ = mode;
    file.sharing_ = sharing;
    struct stat facts;
    count(FileCall::kStat);
    if (fstat(handle, &facts) != 0) {
        file.failure_code_ = errno;
        file.failure_ = OpenFailure::kSystem;
    } else {
        const ForksWait step;
        file.failure_ = check_plain_file(facts, flags);
        file.size_at_open_ = static_cast<std::uint64_t>(facts.st_size);
        file.session_ = &ShareSession::of(facts.st_dev, [&] { return kind_of(handle); });
        file.session_->reach();
        file.remote_ = file.session_->remote();
        file.losses_ = file.session_->losses();
    }
    if (file.failure_ == OpenFailure::kNone && file.takes_sharing_byte()) {
        const int code = share(handle, sharing);
        if (is_conflict(code)) {
            file.failure_ = OpenFailure::kSharing;
        } else if (code != 0) {
            file.failure_code_ = code;
            file.failure_ = OpenFailure::kSystem;
        }
    }
    // Truncates only after the lock has excluded all other opens.
    if (file.failure_ == OpenFailure::kNone && is_emptied(mode)) {
        count(FileCall::kResize);
        if (ftruncate(handle, 0) != 0) file.failure_ = failure_of(errno);
    }
    if (file.failure_ != OpenFailure::kNone) file.close();
    return file;
}

void File::close() noexcept {
    locks_ = 0;
    const int open = is_open() ? descriptor(std::exchange(handle_, kNoHandle)) : -1;
    if (open >= 0) close_descriptor(open);
}

std::size_t File::read_at(std::uint64_t offset, std::span<std::uint8_t> buffer) const {
    const off_t start = checked_offset(offset, buffer.size(), "read", path_);
    require_session("read", offset);
    std::size_t done = 0;
    while (done < buffer.size()) {
        count(FileCall::kRead);
        const ssize_t got = pread(descriptor(handle_), buffer.data() + done, buffer.size() - done,
                                  start + static_cast<off_t>(done));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) fail("read", offset + done, errno);
        if (got == 0) break;
        done += static_cast<std::size_t>(got);
    }
    return done;
}

void File::write_at(std::uint64_t offset, std::span<const std::uint8_t> bytes) {
    const off_t start = checked_offset(offset, bytes.size(), "write", path_);
    require_session("write", offset);
    unsynced_ = true;
    std::size_t done = 0;
    while (done < bytes.size()) {
        count(FileCall::kWrite);
        const ssize_t put = pwrite(descriptor(handle_), bytes.data() + done, bytes.size() - done,
                                   start + static_cast<off_t>(done));
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) fail("write", offset + done, put < 0 ? errno : ENOSPC);
        done += static_cast<std::size_t>(put);
    }
}

std::uint64_t File::size() const { return standing().size; }

// On a share the result of fstat() may be a second old, even under a lock. Seeking to the end asks
// the server.
File::Standing File::standing() const {
    require_session("size", 0);
    count(FileCall::kStat);
    if (remote()) {
        const off_t end = lseek(descriptor(handle_), 0, SEEK_END);
        if (end < 0) fail("size", 0, errno);
        return {static_cast<std::uint64_t>(end), true};
    }
    struct stat facts;
    if (fstat(descriptor(handle_), &facts) != 0) fail("size", 0, errno);
    return {static_cast<std::uint64_t>(facts.st_size), facts.st_nlink != 0};
}

bool File::named() const { return remote() || standing().named; }

bool File::in_place() const {
    if (remote()) return true;
    struct stat ours, there;
    count(FileCall::kStat);
    if (fstat(descriptor(handle_), &ours) != 0) fail("size", 0, errno);
    count(FileCall::kStat);
    const bool found = stat(path_.c_str(), &there) == 0;
    if (!found && errno != ENOENT && errno != ENOTDIR) return true;
    return found && ours.st_ino == there.st_ino && ours.st_dev == there.st_dev;
}

void File::resize(std::uint64_t size) {
    const off_t length = checked_offset(size, 0, "resize", path_);
    require_session("resize", size);
    unsynced_ = true;
    count(FileCall::kResize);
    while (ftruncate(descriptor(handle_), length) != 0) {
        if (errno != EINTR) fail("resize", size, errno);
    }
}

void File::sync() {
    if (!unsynced_) return;
    require_session("sync", 0);
    count(FileCall::kSync);
    while (fdatasync(descriptor(handle_)) != 0) {
        if (errno != EINTR) fail("sync", 0, errno);
    }
    unsynced_ = false;
}

// To the system a length of 0 means "to the end of the file"; here it means an empty range.
bool File::try_lock(ByteRange range, LockKind kind) {
    if (range.length == 0) return true;
    require_session("lock", range.offset);
    const short type = kind == LockKind::kExclusive ? F_WRLCK : F_RDLCK;
    int code = set_lock(descriptor(handle_), range, type);
    if (code == EBADF && reached_again()) {
        code = set_lock(descriptor(handle_), range, type);
    }
    // On an SMB share EAGAIN is no conflict: the session ended before the server could answer.
    const bool refused = is_conflict(code) && !(code == EAGAIN && session_ && session_->smb());
    if (code != 0 && !refused) fail("lock", range.offset, code);
    if (code == 0) ++locks_;
    return code == 0;
}

bool File::lock_within(ByteRange range, LockKind kind, int timeout_ms) {
    return succeeds_within(timeout_ms, remote(), [&] { return try_lock(range, kind); });
}

// An exclusive lock is asked about, because every lock of another File is in its way. A share is
// not asked: its server may know of locks that this system does not report.
std::optional<bool> File::is_locked(ByteRange range) const {
    if (remote() || range.length == 0) return std::nullopt;
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    if (call_lock(descriptor(handle_), F_OFD_GETLK, range, lock) != 0) return std::nullopt;
    return lock.l_type != F_UNLCK;
}

std::optional<bool> File::stays_locked(ByteRange range, int timeout_ms) const {
    std::optional<bool> locked;
    succeeds_within(timeout_ms, remote(), [&] {
        locked = is_locked(range);
        return !locked.value_or(false);
    });
    return locked;
}

void File::unlock(ByteRange range) noexcept {
    if (!is_open() || range.length == 0 || is_out_of_reach()) return;
    const bool was_lost = lost();
    const int code = set_lock(descriptor(handle_), range, F_UNLCK);
    unlocked(was_lost, code);
}

bool file_exists(const std::string& path) {
    const std::string name = with_slashes(path);
    struct stat facts;
    if (!is_possible_path(name)) return false;
    count(FileCall::kStat);
    if (stat(name.c_str(), &facts) == 0) return S_ISREG(facts.st_mode);
    const std::string found = found_path(name);
    if (found == name) return false;
    count(FileCall::kStat);
    return stat(found.c_str(), &facts) == 0 && S_ISREG(facts.st_mode);
}

// Syncs the folder too: otherwise a power failure may restore the old name.
void replace_file(const std::string& from, const std::string& to) {
    const std::string target = system_path(to);
    if (std::rename(system_path(from).c_str(), target.c_str()) != 0) {
        throw FileError("replace", target, 0, errno);
    }
    const std::size_t separator = target.rfind('/');
    const std::string folder =
        separator == std::string::npos ? "." : target.substr(0, separator + 1);
    const int handle = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (handle < 0) return;
    fsync(handle);
    ::close(handle);
}

void remove_file(const std::string& path) noexcept {
    try {
        ::unlink(system_path(path).c_str());
    } catch (const std::bad_alloc&) {
        // Out of memory: the file stays.
    }
}

std::string system_path(const std::string& path) {
    std::string turned = with_slashes(path);
    if (!is_possible_path(turned) || exists(turned)) return turned;
    return found_path(turned);
}

bool is_same_path(const std::string& a, const std::string& b) { return a == b; }

}  // namespace brenik::platform
