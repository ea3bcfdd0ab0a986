/* Loads the library as its hosts do, by name and pointer, and looks at what a C compiler hides.
 *
 *     calls LIBRARY COPY PRACTICE DBF
 *     calls LIBRARY UNWINDER PRACTICE
 *
 * COPY is a second copy of the library's file, DBF a table of the practice. UNWINDER is the library
 * that other programs of the same compiler share for their exceptions; the practice has a table of
 * contacts that is cut short then. One line is printed for each fault; the exit code tells whether
 * there was any. */

#include <windows.h>

#include <locale.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

enum { kLeftOnSmallStack = 64 * 1024, kKeptRegister = 0x0B0B0B0B };

static int faults;
static const char *library_path, *copy_path, *practice, *table_path;

static void expect(int good, const char* what, const char* detail) {
    if (good) return;
    ++faults;
    printf("%s: %s\n", what, detail);
}

/* Pushes the arguments and calls; the stack must then stand where it stood before the pushes. */
static uint32_t call(HMODULE library, const char* name, uint32_t count, const uint32_t* from) {
    FARPROC function = GetProcAddress(library, name);
    expect(function != NULL, "no such export", name);
    if (!function) return ~0u;
    uint32_t result = (uint32_t)function, moved = 0, kept = kKeptRegister, kept_too = kKeptRegister;
    __asm__ volatile(
        "movl %%esp, %%esi\n\t"
        "1: testl %%ecx, %%ecx\n\t"
        "jz 2f\n\t"
        "decl %%ecx\n\t"
        "pushl (%%edx,%%ecx,4)\n\t"
        "jmp 1b\n\t"
        "2: call *%%eax\n\t"
        "subl %%esp, %%esi\n\t"
        "addl %%esi, %%esp\n\t"
        "pushf\n\t"
        "popl %%ecx\n\t"
        : "+a"(result), "=&S"(moved), "+c"(count), "+d"(from), "+b"(kept), "+D"(kept_too)
        :
        : "memory", "cc", "st", "xmm0", "xmm1", "xmm2", "xmm3", "xmm4", "xmm5", "xmm6", "xmm7");
    expect(moved == 0, "the stack pointer moved", name);
    expect(kept == kKeptRegister && kept_too == kKeptRegister, "a register was lost", name);
    expect((count & 0x400) == 0, "the direction flag is set", name);
    return result;
}

static uint32_t address(const void* pointer) { return (uint32_t)pointer; }

static uint32_t initialize(HMODULE library) {
    return call(library, "BrenikInitialize", 3, (uint32_t[]){address(practice), 0, 0});
}

/* Every export at least once; the outcome of each is what a sound practice gives. */
static void work(HMODULE library) {
    char uid[16] = "", key[16] = "       ", firm[64];
    int p = 0;
    memset(firm, ' ', 40), firm[40] = 0;
    const struct {
        uint32_t wanted;
        const char* name;
        uint32_t count, arguments[4];
    } calls[] = {
        {0, "BrenikInitialize", 3, {address(practice), 1, 0}},
        {0, "BrenikAddStart", 2, {1, address(&p)}},
        {0, "BrenikSetField", 4, {1, 0, address("LAST"), address("Calls")}},
        {0, "BrenikAddEnd", 2, {1, address(uid)}},
        {0, "BrenikEditStart", 3, {1, address(uid), address(&p)}},
        {0, "BrenikSetField", 4, {1, 0, address("FIRST"), address("Raw")}},
        {0, "BrenikEditEnd", 2, {1, 0}},
        {0, "BrenikEditBegin", 3, {3, 1, address(&p)}},
        {0, "BrenikSetField", 4, {3, 1, address("RATE"), address("12.5")}},
        {0, "BrenikEditEnd", 2, {3, 1}},
        {0, "BrenikAddedRecord", 2, {1, 1}},
        {6, "BrenikDeletedRecord", 2, {1, 1}},
        {0, "BrenikGetMyFirm", 1, {address(firm)}},
        {19, "BrenikGetU_ID", 3, {1, address("NOBODY"), address(key)}},
        {0, "BrenikShutDown", 0, {0}},
        {15, "BrenikShutDown", 0, {0}},
    };
    for (size_t i = 0; i < sizeof calls / sizeof *calls; ++i) {
        const uint32_t code = call(library, calls[i].name, calls[i].count, calls[i].arguments);
        char text[64];
        sprintf(text, "%s answered %lu", calls[i].name, (unsigned long)code);
        expect(code == calls[i].wanted, "work", text);
    }
}

static HMODULE load(const char* path) {
    HMODULE library = LoadLibraryA(path);
    expect(library != NULL, "not loaded", path);
    return library;
}

struct State {
    uint16_t control_word;
    uint32_t mxcsr;
    char locale[256], folder[MAX_PATH];
    DWORD error_mode, thread_error_mode;
    LPTOP_LEVEL_EXCEPTION_FILTER filter;
};

static struct State state_now(void) {
    struct State now;
    memset(&now, 0, sizeof now);
    __asm__ volatile("fnstcw %0" : "=m"(now.control_word));
    __asm__ volatile("stmxcsr %0" : "=m"(now.mxcsr));
    strcpy(now.locale, setlocale(LC_ALL, NULL));
    GetCurrentDirectoryA(MAX_PATH, now.folder);
    now.error_mode = GetErrorMode(), now.thread_error_mode = GetThreadErrorMode();
    now.filter = SetUnhandledExceptionFilter(NULL);
    SetUnhandledExceptionFilter(now.filter);
    return now;
}

/* Nothing of it is as a process begins: only then does putting back a default show. */
static void make_state_unusual(void) {
    const uint16_t control_word = 0x0E7F; /* towards zero, 53 bits */
    const uint32_t mxcsr = 0x5F80;        /* upwards */
    expect(setlocale(LC_ALL, "German_Germany.1252") != NULL, "locale", "not to be had");
    SetErrorMode(SEM_NOOPENFILEERRORBOX);
    SetCurrentDirectoryA("C:\\windows");
    __asm__ volatile("fldcw %0" : : "m"(control_word));
    __asm__ volatile("ldmxcsr %0" : : "m"(mxcsr));
}

static void expect_state(const struct State* before, const char* when) {
    const DWORD error = GetLastError();
    const struct State now = state_now();
    expect(memcmp(before, &now, sizeof now) == 0, "the host's state was changed", when);
    expect(error == 4711, "the last error was changed", when);
    SetLastError(4711);
}

static void leaves_the_host_alone(void) {
    make_state_unusual();
    const struct State before = state_now();
    SetLastError(4711);
    HMODULE library = load(library_path);
    expect_state(&before, "by loading");
    work(library);
    SetLastError(4711);
    call(library, "BrenikShutDown", 0, NULL);
    expect_state(&before, "by the calls");
    FreeLibrary(library);
    expect_state(&before, "by unloading");
    setlocale(LC_ALL, "C");
    __asm__ volatile("fninit");
}

static int opens_exclusively(void) {
    HANDLE file =
        CreateFileA(table_path, GENERIC_READ | GENERIC_WRITE, 0, NULL, OPEN_EXISTING, 0, NULL);
    if (file == INVALID_HANDLE_VALUE) return 0;
    CloseHandle(file);
    return 1;
}

static void loaded_twice(void) {
    HMODULE first = load(library_path), second = load(library_path), copy = load(copy_path);
    expect(first == second && first != copy, "loaded twice", "wrong modules");
    work(first);
    FreeLibrary(second);
    expect(initialize(first) == 0, "loaded twice", "first");
    work(copy);
    expect(call(first, "BrenikAddedRecord", 2, (uint32_t[]){1, 2}) == 0, "loaded twice",
           "still there");
    FreeLibrary(copy);
    expect(!opens_exclusively(), "loaded twice", "the first lost its tables");
    FreeLibrary(first);
    expect(opens_exclusively(), "unloaded with tables open", "a table stayed open");
}

static DWORD WINAPI work_with_little_stack(LPVOID result) {
    char* bottom; /* of the thread's reservation, from its environment block */
    __asm__("movl %%fs:0xE0C, %0" : "=r"(bottom));
    const size_t left = (size_t)((char*)__builtin_frame_address(0) - bottom);
    volatile char* used = __builtin_alloca(left - kLeftOnSmallStack);
    used[0] = 1;
    HMODULE library = load(library_path);
    work(library);
    FreeLibrary(library);
    *(int*)result = used[0];
    return 0;
}

static void little_stack(void) {
    int done = 0;
    HANDLE thread = CreateThread(NULL, 0, work_with_little_stack, &done, 0, NULL);
    expect(WaitForSingleObject(thread, 60000) == WAIT_OBJECT_0, "thread", "does not end");
    CloseHandle(thread);
    expect(done == 1, "little stack", "not done");
}

/* A fault becomes a code, whichever of the two came first and whichever goes first. */
static void beside_an_unwinder(const char* unwinder) {
    for (int order = 0; order < 4; ++order) {
        HMODULE first = load(order & 1 ? library_path : unwinder);
        HMODULE second = load(order & 1 ? unwinder : library_path);
        HMODULE library = order & 1 ? first : second;
        char identifier[16] = "";
        int p = 0;
        expect(initialize(library) == 0 &&
                   call(library, "BrenikAddStart", 2, (uint32_t[]){1, address(&p)}) == 0 &&
                   call(library, "BrenikAddEnd", 2, (uint32_t[]){1, address(identifier)}) == 14,
               "beside an unwinder", "no fault");
        FreeLibrary(order & 2 ? first : second);
        FreeLibrary(order & 2 ? second : first);
    }
}

int main(int argc, char** argv) {
    if (argc < 4) return 2;
    library_path = argv[1], copy_path = argv[2], practice = argv[3], table_path = argv[4];
    if (argc == 4) return beside_an_unwinder(argv[2]), faults != 0;
    /* The first time changes the last error, as with any library. */
    FreeLibrary(load(library_path));
    leaves_the_host_alone();
    loaded_twice();
    little_stack();
    return faults != 0;
}
