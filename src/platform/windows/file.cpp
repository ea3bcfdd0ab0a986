// Files on Windows, possibly shared with other systems.
//
// Sharing is the share mode of the open. A lock on kSharingByte protects against programs on other
// systems that reach the file without our server's share modes; if there are none, it costs one
// lock. Byte-range locks belong to the handle, so to one File. Windows lets no other handle read or
// write locked bytes: all locks of the library lie beyond the data.

#include "platform/file.h"

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <new>
#include <utility>

#include "platform/share.h"
#include "platform/windows/system_text.h"

namespace brenik::platform {

namespace {

constexpr std::uint64_t kLargestOffset = std::numeric_limits<std::int64_t>::max();

HANDLE system_handle(std::intptr_t handle) { return reinterpret_cast<HANDLE>(handle); }

DWORD access_of(OpenMode mode, Sharing sharing) {
    switch (mode) {
        case OpenMode::kSettings:
            return GENERIC_READ;
        case OpenMode::kReadOnly:
            // Other systems grant an exclusive lock on the sharing byte only with write access.
            return sharing == Sharing::kExclusive ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ;
        case OpenMode::kReadWrite:
        case OpenMode::kCreate:
            return GENERIC_READ | GENERIC_WRITE;
        case OpenMode::kRewrite:
            return GENERIC_WRITE;
        // Without FILE_WRITE_DATA every write appends. A lock needs one of the two rights to data.
        case OpenMode::kAppendOnly:
            return FILE_APPEND_DATA | SYNCHRONIZE;
        case OpenMode::kAppend:
            return FILE_APPEND_DATA | FILE_READ_DATA | SYNCHRONIZE;
    }
    return GENERIC_READ;
}

DWORD share_mode(OpenMode mode, Sharing sharing) {
    if (is_log(mode) || mode == OpenMode::kSettings)
        return FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    return sharing == Sharing::kExclusive ? 0 : FILE_SHARE_READ | FILE_SHARE_WRITE;
}

bool makes_missing_files(OpenMode mode) { return mode == OpenMode::kAppend || is_emptied(mode); }

// Opens a link in the place of a log itself, so that it can be refused, and not its target.
DWORD flags_of(OpenMode mode) {
    constexpr DWORD kAlways = FILE_ATTRIBUTE_NORMAL | SECURITY_SQOS_PRESENT | SECURITY_ANONYMOUS;
    return is_log(mode) ? kAlways | FILE_FLAG_OPEN_REPARSE_POINT : kAlways;
}

OpenFailure failure_of(DWORD system_code) {
    switch (system_code) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
        case ERROR_INVALID_DRIVE:
        case ERROR_BAD_NETPATH:
        case ERROR_BAD_NET_NAME:
        case ERROR_INVALID_NAME:
        case ERROR_BAD_PATHNAME:
        case ERROR_FILENAME_EXCED_RANGE:
        case ERROR_DIRECTORY:
        case ERROR_CANT_RESOLVE_FILENAME:
            return OpenFailure::kMissing;
        case ERROR_SHARING_VIOLATION:
        case ERROR_LOCK_VIOLATION:
            return OpenFailure::kSharing;
        case ERROR_ACCESS_DENIED:
        case ERROR_WRITE_PROTECT:
        case ERROR_NETWORK_ACCESS_DENIED:
            return OpenFailure::kDenied;
        default:
            return OpenFailure::kSystem;
    }
}

// An offset in the form that the system expects.
OVERLAPPED place_at(std::uint64_t offset) {
    OVERLAPPED place = {};
    place.Offset = static_cast<DWORD>(offset);
    place.OffsetHigh = static_cast<DWORD>(offset >> 32);
    return place;
}

DWORD low_half(std::uint64_t number) { return static_cast<DWORD>(number); }
DWORD high_half(std::uint64_t number) { return static_cast<DWORD>(number >> 32); }

// Returns 0 or the system's error number.
DWORD set_lock(HANDLE handle, ByteRange range, LockKind kind) {
    if (range.offset > kLargestOffset || range.length > kLargestOffset - range.offset) {
        return ERROR_ARITHMETIC_OVERFLOW;
    }
    const DWORD exclusive = kind == LockKind::kExclusive ? LOCKFILE_EXCLUSIVE_LOCK : 0;
    OVERLAPPED place = place_at(range.offset);
    const BOOL locked = LockFileEx(handle, LOCKFILE_FAIL_IMMEDIATELY | exclusive, 0,
                                   low_half(range.length), high_half(range.length), &place);
    return locked ? 0 : GetLastError();
}

bool is_conflict(DWORD system_code) {
    return system_code == ERROR_LOCK_VIOLATION || system_code == ERROR_IO_PENDING;
}

// A file with the read-only attribute is refused for writing even if the user's rights would allow
// it.
OpenFailure check_plain_file(const BY_HANDLE_FILE_INFORMATION& facts, OpenMode mode, DWORD access) {
    const auto has = [&](DWORD attribute) { return (facts.dwFileAttributes & attribute) != 0; };
    if (is_log(mode) && has(FILE_ATTRIBUTE_REPARSE_POINT)) return OpenFailure::kDenied;
    const bool writing = access != GENERIC_READ;
    const bool read_only = has(FILE_ATTRIBUTE_READONLY);
    return writing && read_only ? OpenFailure::kDenied : OpenFailure::kNone;
}

// Returns 0 or the system's error number.
DWORD share(HANDLE handle, Sharing sharing) {
    return set_lock(handle, {kSharingByte, 1},
                    sharing == Sharing::kExclusive ? LockKind::kExclusive : LockKind::kShared);
}

// Returns 0 or the system's error number.
DWORD set_size(HANDLE handle, std::uint64_t size) {
    FILE_END_OF_FILE_INFO end = {};
    end.EndOfFile.QuadPart = static_cast<std::int64_t>(size);
    return SetFileInformationByHandle(handle, FileEndOfFileInfo, &end, sizeof end) ? 0
                                                                                   : GetLastError();
}

void check_offset(std::uint64_t offset, std::uint64_t length, const char* operation,
                  const std::string& path) {
    if (offset > kLargestOffset || length > kLargestOffset - offset) {
        throw FileError(operation, path, offset, ERROR_ARITHMETIC_OVERFLOW);
    }
}

int last_error() { return static_cast<int>(GetLastError()); }

// Bounds one transfer: the system's count has 32 bits, and large counts fail on network drives.
DWORD one_transfer(std::size_t wanted) {
    constexpr std::size_t kMost = 16 * 1024 * 1024;
    return static_cast<DWORD>(std::min(wanted, kMost));
}

}  // namespace

// In English, like all our messages; only the number if Windows has no English texts.
std::string system_text(int system_code) {
    wchar_t text[256] = {};
    const DWORD length = FormatMessageW(
        FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK,
        nullptr, static_cast<DWORD>(system_code), MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US),
        text, static_cast<DWORD>(std::size(text)), nullptr);
    std::string words = narrow_text({text, length});
    words.resize(words.find_last_not_of(". \r\n") + 1);
    const std::string number = "system error " + std::to_string(system_code);
    return words.empty() ? number : words + ", " + number;
}

File File::open(const std::string& path, OpenMode mode, Sharing sharing) {
    File file;
    file.path_ = system_path(path);
    file.failure_ = OpenFailure::kMissing;
    const auto full = full_path(file.path_);
    if (!full) return file;

    const DWORD access = access_of(mode, sharing);
    const HANDLE handle = CreateFileW(full->c_str(), access, share_mode(mode, sharing), nullptr,
                                      makes_missing_files(mode) ? OPEN_ALWAYS : OPEN_EXISTING,
                                      flags_of(mode), nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        file.failure_code_ = last_error();
        file.failure_ = failure_of(GetLastError());
        return file;
    }
    file.handle_ = reinterpret_cast<std::intptr_t>(handle);
    file.mode_ = mode;
    file.sharing_ = sharing;
    BY_HANDLE_FILE_INFORMATION facts;
    if (GetFileType(handle) != FILE_TYPE_DISK) {
        file.failure_ = OpenFailure::kDenied;
    } else if (!GetFileInformationByHandle(handle, &facts)) {
        file.failure_ = OpenFailure::kSystem;
    } else {
        file.failure_ = check_plain_file(facts, mode, access);
        file.size_at_open_ = std::uint64_t{facts.nFileSizeHigh} << 32 | facts.nFileSizeLow;
        // Disks of two computers can have the same serial number.
        using Kind = ShareSession::Kind;
        const Kind kind = share_facts(file.path_).remote ? Kind::kSmb : Kind::kLocal;
        const std::uint64_t number = facts.dwVolumeSerialNumber;
        file.session_ =
            &ShareSession::of(number * 2 + (kind == Kind::kSmb ? 1 : 0), [kind] { return kind; });
        file.session_->reach();
        file.remote_ = file.session_->remote();
        file.losses_ = file.session_->losses();
    }
    if (file.failure_ == OpenFailure::kNone && file.takes_sharing_byte()) {
        const DWORD code = share(handle, sharing);
        if (is_conflict(code)) {
            file.failure_ = OpenFailure::kSharing;
        } else if (code != 0) {
            file.failure_code_ = static_cast<int>(code);
            file.failure_ = OpenFailure::kSystem;
        }
    }
    // Truncates only after share mode and lock have excluded all other opens.
    if (file.failure_ == OpenFailure::kNone && is_emptied(mode)) {
        const DWORD code = set_size(handle, 0);
        if (code != 0) file.failure_ = failure_of(code);
    }
    if (file.failure_ != OpenFailure::kNone) file.close();
    return file;
}

void File::close() noexcept {
    locks_ = 0;
    if (is_open()) CloseHandle(system_handle(std::exchange(handle_, kNoHandle)));
}

std::size_t File::read_at(std::uint64_t offset, std::span<std::uint8_t> buffer) const {
    check_offset(offset, buffer.size(), "read", path_);
    require_session("read", offset);
    std::size_t done = 0;
    while (done < buffer.size()) {
        OVERLAPPED place = place_at(offset + done);
        DWORD count = 0;
        if (!ReadFile(system_handle(handle_), buffer.data() + done,
                      one_transfer(buffer.size() - done), &count, &place)) {
            if (GetLastError() == ERROR_HANDLE_EOF) break;
            fail("read", offset + done, last_error());
        }
        if (count == 0) break;
        done += count;
    }
    return done;
}

void File::write_at(std::uint64_t offset, std::span<const std::uint8_t> bytes) {
    check_offset(offset, bytes.size(), "write", path_);
    require_session("write", offset);
    unsynced_ = true;
    std::size_t done = 0;
    while (done < bytes.size()) {
        OVERLAPPED place = place_at(offset + done);
        DWORD count = 0;
        if (!WriteFile(system_handle(handle_), bytes.data() + done,
                       one_transfer(bytes.size() - done), &count, &place)) {
            fail("write", offset + done, last_error());
        }
        if (count == 0) throw FileError("write", path_, offset + done, ERROR_DISK_FULL);
        done += count;
    }
}

std::uint64_t File::size() const {
    require_session("size", 0);
    LARGE_INTEGER size = {};
    if (!GetFileSizeEx(system_handle(handle_), &size)) fail("size", 0, last_error());
    return static_cast<std::uint64_t>(size.QuadPart);
}

// The system refuses to remove or replace a file that is open here.
File::Standing File::standing() const { return {size(), true}; }

bool File::named() const { return true; }

bool File::in_place() const { return true; }

void File::resize(std::uint64_t size) {
    check_offset(size, 0, "resize", path_);
    require_session("resize", size);
    unsynced_ = true;
    const DWORD code = set_size(system_handle(handle_), size);
    if (code != 0) fail("resize", size, static_cast<int>(code));
}

void File::sync() {
    if (!unsynced_) return;
    require_session("sync", 0);
    if (!FlushFileBuffers(system_handle(handle_))) fail("sync", 0, last_error());
    unsynced_ = false;
}

bool File::try_lock(ByteRange range, LockKind kind) {
    if (range.length == 0) return true;
    require_session("lock", range.offset);
    const DWORD code = set_lock(system_handle(handle_), range, kind);
    if (code != 0 && !is_conflict(code)) fail("lock", range.offset, static_cast<int>(code));
    if (code == 0) ++locks_;
    return code == 0;
}

// The scheduler determines the length of a pause, a millisecond or more; the first pauses only
// yield the processor.
bool File::lock_within(ByteRange range, LockKind kind, int timeout_ms) {
    constexpr int kTriesWithoutPause = 4;
    constexpr int kTriesWithoutSleep = 16;

    // GetTickCount64() would be cheaper but could time out about 15 ms early.
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::milliseconds(std::max(timeout_ms, 0));
    for (int tries = 1;; ++tries) {
        if (try_lock(range, kind)) return true;
        if (tries < kTriesWithoutPause) continue;
        if (Clock::now() >= end) return false;
        Sleep(tries < kTriesWithoutSleep ? 0 : 1);
    }
}

// The system has no call that asks about a lock.
std::optional<bool> File::is_locked(ByteRange) const { return std::nullopt; }

std::optional<bool> File::stays_locked(ByteRange, int) const { return std::nullopt; }

void File::unlock(ByteRange range) noexcept {
    if (!is_open() || range.length == 0 || is_out_of_reach()) return;
    const bool was_lost = lost();
    OVERLAPPED place = place_at(range.offset);
    const BOOL done = UnlockFileEx(system_handle(handle_), 0, low_half(range.length),
                                   high_half(range.length), &place);
    unlocked(was_lost, done ? 0 : static_cast<int>(GetLastError()));
}

bool file_exists(const std::string& path) {
    const auto full = full_path(path);
    if (!full) return false;
    const DWORD attributes = GetFileAttributesW(full->c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

void replace_file(const std::string& from, const std::string& to) {
    const auto source = full_path(from);
    const auto target = full_path(to);
    const bool possible = source && target;
    if (possible && MoveFileExW(source->c_str(), target->c_str(),
                                MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        return;
    }
    const DWORD code = possible ? GetLastError() : ERROR_INVALID_NAME;
    throw FileError("replace", to, 0, static_cast<int>(code));
}

void remove_file(const std::string& path) noexcept {
    try {
        if (const auto full = full_path(path)) DeleteFileW(full->c_str());
    } catch (const std::bad_alloc&) {
        // Out of memory: the file stays.
    }
}

std::string system_path(const std::string& path) {
    std::string turned = path;
    std::replace(turned.begin(), turned.end(), '/', '\\');
    return turned;
}

bool is_same_path(const std::string& a, const std::string& b) {
    const auto full_a = full_path(a);
    const auto full_b = full_path(b);
    return full_a && full_b &&
           CompareStringOrdinal(full_a->c_str(), -1, full_b->c_str(), -1, TRUE) == CSTR_EQUAL;
}

}  // namespace brenik::platform
