// File calls that go wrong on purpose: preloaded into a program, this counts its calls on the files
// below one folder, spoils one of them, and records what they change.
//
//   FAULTY_FOLDER  the folder; calls on other files are neither counted nor spoilt
//   FAULTY_KIND    what goes wrong, one of kKinds
//   FAULTY_CALL    at which call, from 1; 0 only counts
//   FAULTY_LOG     where the numbers of writing, reading and locking calls are noted at the end
//   FAULTY_ARMED   set: counting begins with the program, else with its faulty_files_arm()
//   FAULTY_RECORD  where every change and sync is recorded as it is done, in order: a line of
//                  what it was, the offset or length, the number of bytes and the file's path in
//                  the folder, then the bytes.
//
// The first two are needed, or the first and the last.
//
// The kinds that begin with "drop" make the folder, and the file system that it lies on, a share,
// as Linux' SMB client shows one. fstat() tells the size that was last asked of the server, which
// lseek() to the end does; somebody else's lock answers EACCES. At the spoilt call the session
// ends, and all locks of the process with it. From then on locks, unlocks and looks at the end of a
// file answer EBADF, until something is read from it or written to it: that connects again, is
// counted, and takes the file's locks again, where nobody else has got them. "stale" is on a share,
// too: what was just written to a file's header is not there when it is read back.

#define _GNU_SOURCE

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

enum Class { kWriting, kReading, kLocking, kClasses };
enum Kind {
    kEnd,
    kError,
    kGone,
    kFull,
    kShort,
    kRead,
    kLock,
    kGranted,
    kHeld,
    kStale,
    kDrop,
    kDropRead,
    kDropLock,
    kDrops,
};

static const struct {
    const char* name;
    enum Class class_of_calls;
} kKinds[] = {
    {"end", kWriting},        // the process is gone before the call
    {"error", kWriting},      // the call fails, the next one works again
    {"gone", kWriting},       // this call and all that follow fail
    {"full", kWriting},       // from this call on no file grows
    {"short", kWriting},      // a part is written, the write of the rest finds no space
    {"read", kReading},       // the call fails
    {"lock", kLocking},       // the call fails, and not because somebody else has the lock
    {"granted", kLocking},    // from this call on every lock is had, whoever has it
    {"held", kLocking},       // somebody else has this lock, whoever asks and however often
    {"stale", kReading},      // gives the header as it was before the last write to it
    {"drop", kWriting},       // the session with the share ends before the call
    {"drop-read", kReading},  // likewise
    {"drop-lock", kLocking},  // likewise
    {"drops", kReading},      // at every so many calls, which then take a while
};

enum { kMostFiles = 4096, kMostLocks = 64, kHeader = 32, kSilence_us = 30000 };
static const unsigned kShareType = 0xFE534D42;

static struct {
    int ready, armed;
    enum Kind kind;
    unsigned long spoilt_call;
    unsigned long calls[kClasses];
    int fail_rest;
    char folder[PATH_MAX];
    char* ours[kMostFiles];  // paths in the folder
    int record;
    char held[NAME_MAX];
    off_t held_at;
    int disconnected;
    unsigned reconnections;
    struct OnShare {
        int dropped;
        off_t size;
        struct flock locks[kMostLocks];
        int lock_count;
        char old_header[kHeader];
        ssize_t kept;
    } on_share[kMostFiles];
} state = {.record = -1};

#define REAL(type, name, ...)         \
    static type (*real)(__VA_ARGS__); \
    if (!real) *(void**)&real = dlsym(RTLD_NEXT, name)

void faulty_files_arm(void) { state.armed = 1; }
void faulty_files_disarm(void) { state.armed = 0; }

__attribute__((constructor)) static void begin(void) {
    const char* folder = getenv("FAULTY_FOLDER");
    const char* kind = getenv("FAULTY_KIND");
    const char* call = getenv("FAULTY_CALL");
    const char* record = getenv("FAULTY_RECORD");
    if (!folder || !(record || (kind && call))) return;
    for (size_t i = 0; i < sizeof kKinds / sizeof *kKinds; ++i) {
        if (kind && !strcmp(kKinds[i].name, kind)) state.kind = (enum Kind)i;
    }
    snprintf(state.folder, sizeof state.folder, "%s/", folder);
    state.spoilt_call = call ? strtoul(call, NULL, 10) : 0;
    state.ready = 1;
    if (getenv("FAULTY_ARMED")) state.armed = 1;
    if (record) state.record = open(record, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
}

__attribute__((destructor)) static void note_calls(void) {
    const char* path = getenv("FAULTY_LOG");
    FILE* log = state.ready && path ? fopen(path, "w") : NULL;
    if (!log) return;
    fprintf(log, "%lu %lu %lu\n", state.calls[kWriting], state.calls[kReading],
            state.calls[kLocking]);
    fclose(log);
}

static int is_ours(int file) { return file >= 0 && file < kMostFiles && state.ours[file]; }

static int below_folder(const char* path) {
    return state.ready && !strncmp(path, state.folder, strlen(state.folder));
}

static const char* path_in_folder(const char* path) { return path + strlen(state.folder); }

static void remember(int file, const char* path) {
    if (file < 0 || file >= kMostFiles) return;
    free(state.ours[file]);
    state.ours[file] = path ? strdup(path) : NULL;
}

static void note_change(const char* what, const char* path, off_t at, const void* bytes,
                        size_t count) {
    if (state.record < 0) return;
    dprintf(state.record, "%s %lld %zu %s\n", what, (long long)at, count, path);
    if (count && write(state.record, bytes, count) != (ssize_t)count) abort();
}

static int is_share(void) { return state.ready && state.kind >= kStale; }

static int set_lock(int file, const struct flock* range) {
    static int (*real)(int, int, ...);
    if (!real) *(void**)&real = dlsym(RTLD_NEXT, "fcntl");
    return real(file, F_OFD_SETLK, range);
}

static off_t true_size(int file) {
    REAL(int, "fstat", int, struct stat*);
    struct stat facts;
    return real(file, &facts) == 0 ? facts.st_size : -1;
}

static void end_session(void) {
    for (int file = 0; file < kMostFiles; ++file) {
        if (!is_ours(file)) continue;
        const struct flock all = {.l_type = F_UNLCK, .l_whence = SEEK_SET};
        set_lock(file, &all);
        state.on_share[file].dropped = 1;
    }
    state.disconnected = 1;
}

// What every call but a look at the file's own facts does.
static void reach_server(void) {
    state.reconnections += (unsigned)state.disconnected;
    state.disconnected = 0;
}

static void connect_again(int file) {
    struct OnShare* share = &state.on_share[file];
    if (!is_share() || !share->dropped) return;
    share->dropped = 0;
    reach_server();
    for (int i = 0; i < share->lock_count; ++i) set_lock(file, &share->locks[i]);
}

static void note_lock(int file, const struct flock* range) {
    struct OnShare* share = &state.on_share[file];
    if (range->l_type != F_UNLCK) {
        if (share->lock_count == kMostLocks) abort();
        share->locks[share->lock_count++] = *range;
        return;
    }
    for (int i = share->lock_count; i-- > 0;) {
        if (share->locks[i].l_start != range->l_start) continue;
        share->locks[i] = share->locks[--share->lock_count];
    }
}

static int is_held(int file, const struct flock* range) {
    return state.armed && is_ours(file) && !strcmp(state.ours[file], state.held) &&
           range->l_start == state.held_at;
}

// A file with what the system would count of its SMB connections.
static int open_counts(void) {
    const int file = memfd_create("counts", MFD_CLOEXEC);
    dprintf(file, "Resources in use\n%u session %u share reconnects\n", state.reconnections,
            state.reconnections);
    lseek(file, 0, SEEK_SET);
    return file;
}

// Counts a call; true when it, or everything from an earlier one on, is to be spoilt.
static int spoils(enum Class class_of_call) {
    if (!state.armed) return 0;
    const unsigned long number = ++state.calls[class_of_call];
    if (class_of_call != kKinds[state.kind].class_of_calls || !state.spoilt_call) return 0;
    if (state.kind >= kDrop) {
        const int often = state.kind == kDrops && number % state.spoilt_call == 0;
        if (number == state.spoilt_call || often) end_session();
        if (often) usleep(kSilence_us);
        return 0;
    }
    const int lasting = state.kind == kGone || state.kind == kFull || state.kind == kGranted;
    return lasting ? number >= state.spoilt_call : number == state.spoilt_call;
}

// What becomes of a writing call: 0 nothing, else the error number that it fails with.
static int fate(int grows) {
    if (state.fail_rest) {
        state.fail_rest = 0;
        ++state.calls[kWriting];
        return ENOSPC;
    }
    if (!spoils(kWriting)) return 0;
    if (state.kind == kEnd) kill(getpid(), SIGKILL);
    if (state.kind == kFull) return grows ? ENOSPC : 0;
    return state.kind == kShort ? ENOSPC : EIO;
}

static int grows_file(int file, off_t end) { return end > true_size(file); }

static int fail_with(int code) {
    errno = code;
    return -1;
}

static int makes_file(const char* path, int flags) {
    return (flags & O_TRUNC) || ((flags & O_CREAT) && access(path, F_OK) != 0);
}

int open(const char* path, int flags, ...) {
    REAL(int, "open", const char*, int, ...);
    mode_t mode = 0;
    if (flags & O_CREAT) {
        va_list rest;
        va_start(rest, flags);
        mode = (mode_t)va_arg(rest, int);
        va_end(rest);
    }
    if (is_share() && !strcmp(path, "/proc/fs/cifs/Stats")) return open_counts();
    const int ours = below_folder(path);
    if (ours) reach_server();
    const int makes = ours && makes_file(path, flags);
    const int code = makes ? fate(1) : 0;
    if (code) return fail_with(code);
    const int file = real(path, flags, mode);
    remember(file, ours ? path_in_folder(path) : NULL);
    if (ours && file >= 0 && file < kMostFiles) {
        state.on_share[file] = (struct OnShare){.size = true_size(file)};
    }
    if (makes && file >= 0) note_change("create", path_in_folder(path), 0, NULL, 0);
    return file;
}

int close(int file) {
    REAL(int, "close", int);
    remember(file, NULL);
    return real(file);
}

int fcntl(int file, int command, ...) {
    REAL(int, "fcntl", int, int, ...);
    va_list rest;
    va_start(rest, command);
    void* argument = va_arg(rest, void*);
    va_end(rest);
    const int locking = command == F_OFD_SETLK || command == F_OFD_SETLKW;
    const int unlocking = locking && ((struct flock*)argument)->l_type == F_UNLCK;
    if (locking && is_ours(file) && (!unlocking || is_share()) && spoils(kLocking)) {
        if (state.kind != kHeld) return state.kind == kGranted ? 0 : fail_with(ENOLCK);
        snprintf(state.held, sizeof state.held, "%s", state.ours[file]);
        state.held_at = ((struct flock*)argument)->l_start;
    }
    if (locking && !unlocking && is_held(file, argument)) return fail_with(EAGAIN);
    if (locking && is_ours(file)) reach_server();
    if (locking && is_ours(file) && is_share() && state.on_share[file].dropped) {
        return fail_with(EBADF);
    }
    const int result = real(file, command, argument);
    if (locking && is_ours(file) && is_share() && result == 0) note_lock(file, argument);
    if (locking && is_share() && result != 0 && errno == EAGAIN) errno = EACCES;
    if (command == F_DUPFD_CLOEXEC || command == F_DUPFD) {
        remember(result, is_ours(file) ? state.ours[file] : NULL);
    }
    return result;
}

static ssize_t read_at(int file, void* bytes, size_t count, off_t at) {
    REAL(ssize_t, "pread", int, void*, size_t, off_t);
    return real(file, bytes, count, at);
}

static void keep_header(int file) {
    struct OnShare* share = &state.on_share[file];
    share->kept = read_at(file, share->old_header, kHeader, 0);
}

static ssize_t read_stale(int file, void* bytes, size_t count, off_t at) {
    const struct OnShare* share = &state.on_share[file];
    const ssize_t got = read_at(file, bytes, count, at);
    const ssize_t kept = share->kept - at;
    if (got > 0 && kept > 0)
        memcpy(bytes, share->old_header + at, (size_t)(got < kept ? got : kept));
    return got;
}

static ssize_t write_at(int file, const void* bytes, size_t count, off_t at) {
    REAL(ssize_t, "pwrite", int, const void*, size_t, off_t);
    if (is_ours(file)) connect_again(file);
    if (is_ours(file) && is_share() && at < kHeader) keep_header(file);
    const ssize_t put = real(file, bytes, count, at);
    if (is_ours(file) && put > 0) {
        note_change("write", state.ours[file], at, bytes, (size_t)put);
        struct OnShare* share = &state.on_share[file];
        if (share->size < at + put) share->size = at + put;
    }
    return put;
}

ssize_t pwrite(int file, const void* bytes, size_t count, off_t at) {
    const int code = is_ours(file) ? fate(grows_file(file, at + (off_t)count)) : 0;
    if (code && state.kind == kShort && count > 1 && !state.fail_rest &&
        state.calls[kWriting] == state.spoilt_call) {
        state.fail_rest = 1;
        return write_at(file, bytes, 1 + state.spoilt_call * 7 % (count - 1), at);
    }
    return code ? fail_with(code) : write_at(file, bytes, count, at);
}

ssize_t write(int file, const void* bytes, size_t count) {
    REAL(ssize_t, "write", int, const void*, size_t);
    const int code = is_ours(file) ? fate(1) : 0;
    if (code) return fail_with(code);
    const ssize_t put = real(file, bytes, count);
    if (is_ours(file) && put > 0) {
        note_change("write", state.ours[file], lseek(file, 0, SEEK_CUR) - put, bytes, (size_t)put);
    }
    return put;
}

ssize_t pread(int file, void* bytes, size_t count, off_t at) {
    if (is_ours(file) && spoils(kReading)) {
        return state.kind == kStale ? read_stale(file, bytes, count, at) : fail_with(EIO);
    }
    if (is_ours(file)) connect_again(file);
    return read_at(file, bytes, count, at);
}

int fstat(int file, struct stat* facts) {
    REAL(int, "fstat", int, struct stat*);
    const int result = real(file, facts);
    if (result == 0 && is_ours(file) && is_share()) facts->st_size = state.on_share[file].size;
    return result;
}

off_t lseek(int file, off_t offset, int whence) {
    REAL(off_t, "lseek", int, off_t, int);
    const int asks = is_ours(file) && is_share() && whence == SEEK_END;
    if (asks) reach_server();
    if (asks && state.on_share[file].dropped) return fail_with(EBADF);
    const off_t at = real(file, offset, whence);
    if (asks && at >= 0) state.on_share[file].size = true_size(file);
    return at;
}

int fstatfs(int file, struct statfs* facts) {
    REAL(int, "fstatfs", int, struct statfs*);
    const int result = real(file, facts);
    if (result == 0 && is_share()) facts->f_type = kShareType;
    return result;
}

int ftruncate(int file, off_t length) {
    REAL(int, "ftruncate", int, off_t);
    const int code = is_ours(file) ? fate(grows_file(file, length)) : 0;
    if (code) return fail_with(code);
    const int result = real(file, length);
    if (is_ours(file) && result == 0) note_change("resize", state.ours[file], length, NULL, 0);
    return result;
}

static int sync_with(int (*real)(int), int file) {
    const int code = is_ours(file) ? fate(0) : 0;
    if (code) return fail_with(code);
    const int result = real(file);
    if (is_ours(file) && result == 0) note_change("sync", state.ours[file], 0, NULL, 0);
    return result;
}

int fsync(int file) {
    REAL(int, "fsync", int);
    return sync_with(real, file);
}

int fdatasync(int file) {
    REAL(int, "fdatasync", int);
    return sync_with(real, file);
}

int rename(const char* from, const char* to) {
    REAL(int, "rename", const char*, const char*);
    const int code = below_folder(to) ? fate(0) : 0;
    if (code) return fail_with(code);
    const int result = real(from, to);
    if (below_folder(from) && result == 0) note_change("rename", path_in_folder(from), 0, NULL, 0);
    return result;
}

int unlink(const char* path) {
    REAL(int, "unlink", const char*);
    const int code = below_folder(path) ? fate(0) : 0;
    if (code) return fail_with(code);
    const int result = real(path);
    if (below_folder(path) && result == 0) note_change("unlink", path_in_folder(path), 0, NULL, 0);
    return result;
}

// On 64-bit systems these are other names of the same.
int open64(const char* path, int flags, ...) __attribute__((alias("open")));
int fcntl64(int file, int command, ...) __attribute__((alias("fcntl")));
ssize_t pwrite64(int file, const void* bytes, size_t count, off64_t at)
    __attribute__((alias("pwrite")));
ssize_t pread64(int file, void* bytes, size_t count, off64_t at) __attribute__((alias("pread")));
off64_t lseek64(int file, off64_t offset, int whence) __attribute__((alias("lseek")));
int fstat64(int file, struct stat64* facts) __attribute__((alias("fstat")));
int fstatfs64(int file, struct statfs64* facts) __attribute__((alias("fstatfs")));
int ftruncate64(int file, off64_t length) __attribute__((alias("ftruncate")));
