// File calls that go wrong on purpose: preloaded into a program, this counts its calls on the files
// below one folder, spoils one of them, and records what they change.
//
//   FAULTY_FOLDER  the folder; calls on other files are neither counted nor spoilt
//   FAULTY_KIND    what goes wrong, one of KINDS
//   FAULTY_CALL    at which call, from 1; 0 only counts
//   FAULTY_LOG     where the numbers of writing, reading and locking calls are noted at the end
//   FAULTY_ARMED   set: counting begins with the program. Each SIGUSR1 begins or ends it
//   FAULTY_TIME    the second at which the program's clock begins. Then it runs only while the
//                  program sleeps, which takes no time, and by a moment each time that it is read
//   FAULTY_RECORD  where every change and sync is recorded as it is done, in order: a line of
//                  what it was, the offset or length, the number of bytes and the file's path in
//                  the folder, then the bytes.
//
// The first two are needed, or the first and the last.
//
// The kinds that begin with "drop", and "cut", make the folder, and the file system that it lies
// on, a share, as Linux' SMB client shows one. fstat() tells the size that was last asked of the
// server, which lseek() to the end does; somebody else's lock answers EACCES. At the spoilt call
// the session ends, and all locks of the process with it. From then on locks, unlocks and looks at
// the end of a file answer EBADF, until something is read from it or written to it: that connects
// again, is counted, and takes the file's locks again, where nobody else has got them. "stale" is
// on a share, too: what was just written to a file's header is not there when it is read back.

#define _GNU_SOURCE

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
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <time.h>
#include <unistd.h>

// Enumerator, name, the calls that are counted for it, and whether it lasts from that call on.
#define KINDS(X)                                                                                 \
    X(kEnd, "end", kWriting, 0)            /* the process is gone before the call */             \
    X(kError, "error", kWriting, 0)        /* the call fails, the next one works again */        \
    X(kGone, "gone", kWriting, 1)          /* this call and all that follow fail */              \
    X(kFull, "full", kWriting, 1)          /* no file grows any more */                          \
    X(kShort, "short", kWriting, 0)        /* a part is written, the rest finds no space */      \
    X(kRead, "read", kReading, 0)          /* the call fails */                                  \
    X(kLock, "lock", kLocking, 0)          /* the call fails, though nobody else has the lock */ \
    X(kGranted, "granted", kLocking, 1)    /* every lock is had, whoever has it */               \
    X(kHeld, "held", kLocking, 0)          /* somebody else has this lock from now on */         \
    X(kStale, "stale", kReading, 0)        /* gives the header as before the last write to it */ \
    X(kDrop, "drop", kWriting, 0)          /* the session with the share ends before the call */ \
    X(kDropRead, "drop-read", kReading, 0) /* likewise */                                        \
    X(kDropLock, "drop-lock", kLocking, 0) /* likewise */                                        \
    X(kDrops, "drops", kReading, 0)        /* at every so many calls, which then take a while */ \
    X(kCut, "cut", kWriting, 0)            /* as "drop"; no answer while calls count */

#define ENUMERATOR(kind, name, calls, lasts) kind,
#define ROW(kind, name, calls, lasts) {name, calls, lasts},
enum Class { kWriting, kReading, kLocking, kClasses };
enum Kind { KINDS(ENUMERATOR) kKindCount };
static const struct {
    const char* name;
    enum Class class_of_calls;
    int lasts;
} kKinds[] = {KINDS(ROW)};

enum { kMostFiles = 4096, kMostLocks = 64, kHeader = 32, kSilence_us = 30000 };
enum { kMoment_ns = 1000000, kSecond_ns = 1000000000 };
static const unsigned kShareType = 0xFE534D42;

struct File {
    char* path;  // in the folder; those of other files are not known
    int dropped, lock_count;
    off_t size;  // as the share's server told it last
    struct flock locks[kMostLocks];
    char old_header[kHeader];
    ssize_t kept;
};

static struct {
    int ready, fail_rest, record, disconnected, cut;
    volatile sig_atomic_t armed;
    enum Kind kind;
    unsigned long spoilt_call, calls[kClasses];
    unsigned reconnections;
    char folder[PATH_MAX], held[NAME_MAX];
    off_t held_at;
    long long now;  // in nanoseconds; 0 while the system's clock runs
    struct File files[kMostFiles];
} state = {.record = -1};

static void obey(int signal) {
    (void)signal;
    state.armed = !state.armed;
}

__attribute__((constructor)) static void begin(void) {
    const char *folder = getenv("FAULTY_FOLDER"), *kind = getenv("FAULTY_KIND");
    const char *call = getenv("FAULTY_CALL"), *record = getenv("FAULTY_RECORD");
    const char* now = getenv("FAULTY_TIME");
    if (!folder || !(record || (kind && call))) return;
    for (int i = 0; kind && i < kKindCount; ++i) {
        if (!strcmp(kKinds[i].name, kind)) state.kind = (enum Kind)i;
    }
    snprintf(state.folder, sizeof state.folder, "%s/", folder);
    state.spoilt_call = call ? strtoul(call, NULL, 10) : 0;
    state.ready = 1;
    state.armed = getenv("FAULTY_ARMED") != NULL;
    state.now = now ? atol(now) * kSecond_ns : 0;
    signal(SIGUSR1, obey);
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

static int fail_with(int code) {
    errno = code;
    return -1;
}

// NULL where the file is not one of the folder's.
static struct File* ours(int file) {
    const int known = file >= 0 && file < kMostFiles && state.files[file].path;
    return known ? &state.files[file] : NULL;
}

static const char* path_of(int file) { return ours(file) ? ours(file)->path : NULL; }

static const char* path_in_folder(const char* path) {
    const size_t length = strlen(state.folder);
    return state.ready && !strncmp(path, state.folder, length) ? path + length : NULL;
}

static void remember(int file, const char* path) {
    if (file < 0 || file >= kMostFiles) return;
    free(state.files[file].path);
    state.files[file].path = path ? strdup(path) : NULL;
}

static void note_change(const char* what, const char* path, off_t at, const void* bytes,
                        size_t count) {
    if (state.record < 0) return;
    dprintf(state.record, "%s %lld %zu %s\n", what, (long long)at, count, path);
    if (count && write(state.record, bytes, count) != (ssize_t)count) abort();
}

// ------------------------------------------------------------------------------------- the share

static int is_share(void) { return state.ready && state.kind >= kStale; }

static off_t true_size(int file) {
    struct stat facts;
    return syscall(SYS_fstat, file, &facts) == 0 ? facts.st_size : -1;
}

static void end_session(void) {
    for (int file = 0; file < kMostFiles; ++file) {
        if (!ours(file)) continue;
        const struct flock all = {.l_type = F_UNLCK, .l_whence = SEEK_SET};
        syscall(SYS_fcntl, file, F_OFD_SETLK, &all);
        ours(file)->dropped = 1;
    }
    state.disconnected = 1;
}

// What every call but a look at the file's own facts does.
static void reach_server(void) {
    state.reconnections += (unsigned)state.disconnected;
    state.disconnected = 0;
}

static void connect_again(int file) {
    struct File* share = ours(file);
    if (!is_share() || !share || !share->dropped) return;
    share->dropped = 0;
    reach_server();
    for (int i = 0; i < share->lock_count; ++i)
        syscall(SYS_fcntl, file, F_OFD_SETLK, &share->locks[i]);
}

static void note_lock(struct File* share, const struct flock* range) {
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

static int is_cut_off(void) { return state.armed && state.cut; }

// A file with what the system would count of its SMB connections.
static int open_counts(void) {
    const int file = memfd_create("counts", MFD_CLOEXEC);
    dprintf(file, "Resources in use\n%u session %u share reconnects\n", state.reconnections,
            state.reconnections);
    lseek(file, 0, SEEK_SET);
    return file;
}

// ------------------------------------------------------------------------------------- the faults

// Counts a call; true when it, or everything from an earlier one on, is to be spoilt.
static int spoils(enum Class class_of_call) {
    if (!state.armed) return 0;
    const unsigned long number = ++state.calls[class_of_call];
    if (class_of_call != kKinds[state.kind].class_of_calls || !state.spoilt_call) return 0;
    if (state.kind >= kDrop) {
        const int often = state.kind == kDrops && number % state.spoilt_call == 0;
        if (number == state.spoilt_call || often) end_session();
        if (often) usleep(kSilence_us);
        if (number == state.spoilt_call) state.cut = state.kind == kCut;
        return 0;
    }
    return kKinds[state.kind].lasts ? number >= state.spoilt_call : number == state.spoilt_call;
}

// What becomes of a writing call: 0 nothing, else the error number that it fails with.
static int fate(int grows) {
    if (state.fail_rest) {
        state.fail_rest = 0;
        ++state.calls[kWriting];
        return ENOSPC;
    }
    if (!spoils(kWriting)) return is_cut_off() ? EHOSTDOWN : 0;
    if (state.kind == kEnd) kill(getpid(), SIGKILL);
    if (state.kind == kFull) return grows ? ENOSPC : 0;
    return state.kind == kShort ? ENOSPC : EIO;
}

static int grows_file(int file, off_t end) { return end > true_size(file); }

// A change of a file of the folder, or a sync, by a system call; with any other path only the call.
static int change(const char* what, const char* path, int grows, off_t at, long call, long first,
                  long second) {
    const int code = path ? fate(grows) : 0;
    if (code) return fail_with(code);
    const int result = (int)syscall(call, first, second);
    if (path && result == 0) note_change(what, path, at, NULL, 0);
    return result;
}

int ftruncate(int file, off_t length) {
    return change("resize", path_of(file), grows_file(file, length), length, SYS_ftruncate, file,
                  length);
}

int fdatasync(int file) { return change("sync", path_of(file), 0, 0, SYS_fdatasync, file, 0); }

int rename(const char* from, const char* to) {
    return change("rename", path_in_folder(from), 0, 0, SYS_rename, (long)from, (long)to);
}

int unlink(const char* path) {
    return change("unlink", path_in_folder(path), 0, 0, SYS_unlink, (long)path, 0);
}

int open(const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = flags & O_CREAT ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    if (is_share() && !strcmp(path, "/proc/fs/cifs/Stats")) return open_counts();
    const char* name = path_in_folder(path);
    if (name && is_cut_off()) return fail_with(EHOSTDOWN);
    if (name) reach_server();
    const int missing = (flags & O_CREAT) && access(path, F_OK) != 0;
    const int makes = name && ((flags & O_TRUNC) || missing);
    const int code = makes ? fate(1) : 0;
    if (code) return fail_with(code);
    const int file = (int)syscall(SYS_openat, AT_FDCWD, path, flags, mode);
    remember(file, NULL);
    if (name && file >= 0 && file < kMostFiles) {
        state.files[file] = (struct File){.size = true_size(file), .path = strdup(name)};
    }
    return file;
}

int close(int file) {
    remember(file, NULL);
    return (int)syscall(SYS_close, file);
}

// A lock or an unlock of a file of the folder.
static int set_lock(int file, int command, const struct flock* range) {
    const int unlocking = range->l_type == F_UNLCK;
    if ((!unlocking || is_share()) && spoils(kLocking)) {
        if (state.kind != kHeld) return state.kind == kGranted ? 0 : fail_with(ENOLCK);
        snprintf(state.held, sizeof state.held, "%s", path_of(file));
        state.held_at = range->l_start;
    }
    const int held = !strcmp(path_of(file), state.held) && range->l_start == state.held_at;
    if (state.armed && held && !unlocking) return fail_with(EAGAIN);
    if (is_cut_off()) return fail_with(EHOSTDOWN);
    reach_server();
    if (is_share() && ours(file)->dropped) return fail_with(EBADF);
    const int result = (int)syscall(SYS_fcntl, file, command, range);
    if (is_share() && result == 0) note_lock(ours(file), range);
    if (is_share() && result != 0 && errno == EAGAIN) errno = EACCES;
    return result;
}

int fcntl(int file, int command, ...) {
    va_list rest;
    va_start(rest, command);
    void* argument = va_arg(rest, void*);
    va_end(rest);
    const int locking = command == F_OFD_SETLK;
    if (locking && ours(file)) return set_lock(file, command, argument);
    const int result = (int)syscall(SYS_fcntl, file, command, argument);
    if (command == F_DUPFD_CLOEXEC) remember(result, path_of(file));
    return result;
}

static ssize_t read_at(int file, void* bytes, size_t count, off_t at) {
    return syscall(SYS_pread64, file, bytes, count, at);
}

static ssize_t read_stale(int file, void* bytes, size_t count, off_t at) {
    const ssize_t got = read_at(file, bytes, count, at), kept = ours(file)->kept - at;
    if (got > 0 && kept > 0)
        memcpy(bytes, ours(file)->old_header + at, (size_t)(got < kept ? got : kept));
    return got;
}

ssize_t pread(int file, void* bytes, size_t count, off_t at) {
    if (ours(file) && spoils(kReading)) {
        return state.kind == kStale ? read_stale(file, bytes, count, at) : fail_with(EIO);
    }
    if (ours(file) && is_cut_off()) return fail_with(EHOSTDOWN);
    connect_again(file);
    return read_at(file, bytes, count, at);
}

static ssize_t write_at(int file, const void* bytes, size_t count, off_t at) {
    struct File* share = ours(file);
    connect_again(file);
    if (share && is_share() && at < kHeader)
        share->kept = read_at(file, share->old_header, kHeader, 0);
    const ssize_t put = syscall(SYS_pwrite64, file, bytes, count, at);
    if (share && put > 0) {
        note_change("write", share->path, at, bytes, (size_t)put);
        if (share->size < at + put) share->size = at + put;
    }
    return put;
}

ssize_t pwrite(int file, const void* bytes, size_t count, off_t at) {
    const int code = ours(file) ? fate(grows_file(file, at + (off_t)count)) : 0;
    if (code && state.kind == kShort && count > 1 && !state.fail_rest &&
        state.calls[kWriting] == state.spoilt_call) {
        state.fail_rest = 1;
        return write_at(file, bytes, 1 + state.spoilt_call * 7 % (count - 1), at);
    }
    return code ? fail_with(code) : write_at(file, bytes, count, at);
}

int fstat(int file, struct stat* facts) {
    const int result = (int)syscall(SYS_fstat, file, facts);
    if (result == 0 && ours(file) && is_share()) facts->st_size = ours(file)->size;
    return result;
}

off_t lseek(int file, off_t offset, int whence) {
    const int asks = ours(file) && is_share() && whence == SEEK_END;
    if (asks && is_cut_off()) return fail_with(EHOSTDOWN);
    if (asks) reach_server();
    if (asks && ours(file)->dropped) return fail_with(EBADF);
    const off_t at = syscall(SYS_lseek, file, offset, whence);
    if (asks && at >= 0) ours(file)->size = true_size(file);
    return at;
}

int fstatfs(int file, struct statfs* facts) {
    const int result = (int)syscall(SYS_fstatfs, file, facts);
    if (result == 0 && is_share()) facts->f_type = kShareType;
    return result;
}

// -------------------------------------------------------------------------------------- the clock

int clock_gettime(clockid_t clock, struct timespec* time) {
    if (!state.now) return (int)syscall(SYS_clock_gettime, clock, time);
    state.now += kMoment_ns;
    *time = (struct timespec){state.now / kSecond_ns, state.now % kSecond_ns};
    return 0;
}

int nanosleep(const struct timespec* time, struct timespec* rest) {
    if (!state.now) return (int)syscall(SYS_nanosleep, time, rest);
    state.now += time->tv_sec * kSecond_ns + time->tv_nsec;
    return 0;
}

// On 64-bit systems these are other names of the same.
#define ALIAS(name) __attribute__((alias(name)))
int open64(const char* path, int flags, ...) ALIAS("open");
int fcntl64(int file, int command, ...) ALIAS("fcntl");
ssize_t pwrite64(int file, const void* bytes, size_t count, off64_t at) ALIAS("pwrite");
ssize_t pread64(int file, void* bytes, size_t count, off64_t at) ALIAS("pread");
off64_t lseek64(int file, off64_t offset, int whence) ALIAS("lseek");
int fstat64(int file, struct stat64* facts) ALIAS("fstat");
int fstatfs64(int file, struct statfs64* facts) ALIAS("fstatfs");
int ftruncate64(int file, off64_t length) ALIAS("ftruncate");
