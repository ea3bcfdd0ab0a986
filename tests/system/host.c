// A host program in the smallest form: it loads the library whose path is its only argument and
// makes one call for every line that it reads. The tests drive it through two pipes, so that
// whatever happens to a host happens to this process and not to the tests.
//
// A line is a command and its arguments; numbers are decimal, texts and buffers are written as x
// followed by hex digits. Every line is answered by one JSON object: "rc" is the call's result, "p"
// the integer behind a pointer argument afterwards, "buffer" the caller's buffer afterwards,
// exactly as long as it was given, and "guards" tells whether the bytes around both are untouched.

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#ifdef _WIN32
#include <windows.h>
#define HOST_CALL __stdcall
typedef HMODULE Library;
typedef FARPROC Symbol;
static Library load_library(const char* path) { return LoadLibraryA(path); }
static Symbol find_symbol(Library library, const char* name) {
    return GetProcAddress(library, name);
}
static const char* load_error(void) { return "LoadLibrary failed"; }
#else
#include <dlfcn.h>
#define HOST_CALL
typedef void* Library;
typedef void* Symbol;
static Library load_library(const char* path) { return dlopen(path, RTLD_NOW | RTLD_LOCAL); }
static Symbol find_symbol(Library library, const char* name) { return dlsym(library, name); }
static const char* load_error(void) { return dlerror(); }
#endif

// One member for each entry point, in the order of kNames.
struct EntryPoints {
    uint32_t(HOST_CALL* initialize)(const char* path, int32_t trace, int32_t unused);
    uint32_t (*shut_down)(void);
    uint32_t(HOST_CALL* added_record)(int32_t table, int32_t record);
    uint32_t(HOST_CALL* deleted_record)(int32_t table, int32_t record);
    uint32_t(HOST_CALL* add_start)(int32_t table, int32_t* p);
    uint32_t(HOST_CALL* add_end)(int32_t table, char* identifier);
    uint32_t(HOST_CALL* edit_start)(int32_t table, const char* identifier, int32_t* p);
    uint32_t(HOST_CALL* edit_begin)(int32_t table, int32_t record, int32_t* p);
    uint32_t(HOST_CALL* set_field)(int32_t table, int32_t record, const char* name,
                                   const char* value);
    uint32_t(HOST_CALL* edit_end)(int32_t table, int32_t record);
    uint32_t(HOST_CALL* get_my_firm)(char* firm);
    uint32_t(HOST_CALL* get_uid)(int32_t table, const char* key, char* identifier);
};

static const char* const kNames[] = {
    "BrenikInitialize", "BrenikShutDown", "BrenikAddedRecord", "BrenikDeletedRecord",
    "BrenikAddStart",   "BrenikAddEnd",   "BrenikEditStart",   "BrenikEditBegin",
    "BrenikSetField",   "BrenikEditEnd",  "BrenikGetMyFirm",   "BrenikGetU_ID",
};

enum { kGuardSize = 32, kGuardByte = 0xA5 };

static struct EntryPoints api;

static void fail(const char* what, const char* detail) {
    fprintf(stderr, "host: %s: %s\n", what, detail);
    exit(2);
}

static void bind(const char* path) {
    Library library = load_library(path);
    if (!library) fail(path, load_error());
    for (size_t i = 0; i < sizeof kNames / sizeof *kNames; ++i) {
        Symbol symbol = find_symbol(library, kNames[i]);
        if (!symbol) fail("entry point missing", kNames[i]);
        memcpy((char*)&api + i * sizeof symbol, &symbol, sizeof symbol);
    }
}

// A text or buffer argument, with a NUL and guard bytes behind it and guard bytes before it.
struct Buffer {
    unsigned char* block;
    char* bytes;
    size_t size;
};

static struct Buffer take_buffer(void) {
    const char* word = strtok(NULL, " ");
    struct Buffer buffer = {NULL, NULL, 0};
    if (!word || *word++ != 'x') fail("text argument expected", word ? word : "nothing");
    buffer.size = strlen(word) / 2;
    buffer.block = malloc(buffer.size + 2 * kGuardSize);
    if (!buffer.block) fail("memory", "none left");
    memset(buffer.block, kGuardByte, buffer.size + 2 * kGuardSize);
    buffer.bytes = (char*)buffer.block + kGuardSize;
    for (size_t i = 0; i < buffer.size; ++i) {
        char digits[3] = {word[2 * i], word[2 * i + 1], 0};
        buffer.bytes[i] = (char)strtoul(digits, NULL, 16);
    }
    return buffer;
}

static int32_t take_number(void) {
    const char* word = strtok(NULL, " ");
    if (!word) fail("number expected", "nothing");
    return (int32_t)strtoll(word, NULL, 10);
}

static int guards_intact(const struct Buffer* buffer) {
    for (size_t i = 0; i < kGuardSize; ++i) {
        if (buffer->block[i] != kGuardByte) return 0;
        if (buffer->block[kGuardSize + buffer->size + i] != kGuardByte) return 0;
    }
    return 1;
}

// One call: the texts that it was given, the one that it may write to, and its pointed-to integer
// between two guards.
struct Call {
    struct Buffer texts[2];
    const struct Buffer* written;
    int32_t p[3];
};

static char* take_text(struct Call* call, int index) {
    call->texts[index] = take_buffer();
    return call->texts[index].bytes;
}

static char* take_written(struct Call* call, int index) {
    call->written = &call->texts[index];
    return take_text(call, index);
}

static int32_t* take_pointed(struct Call* call) {
    call->p[1] = take_number();
    return &call->p[1];
}

static uint32_t do_initialize(struct Call* call) {
    const char* path = take_text(call, 0);
    int32_t trace = take_number();
    return api.initialize(path, trace, take_number());
}

static uint32_t do_shut_down(struct Call* call) {
    (void)call;
    return api.shut_down();
}

static uint32_t do_added(struct Call* call) {
    (void)call;
    int32_t table = take_number();
    return api.added_record(table, take_number());
}

static uint32_t do_deleted(struct Call* call) {
    (void)call;
    int32_t table = take_number();
    return api.deleted_record(table, take_number());
}

static uint32_t do_add_start(struct Call* call) {
    int32_t table = take_number();
    return api.add_start(table, take_pointed(call));
}

static uint32_t do_add_end(struct Call* call) {
    int32_t table = take_number();
    return api.add_end(table, take_written(call, 0));
}

static uint32_t do_edit_start(struct Call* call) {
    int32_t table = take_number();
    const char* identifier = take_text(call, 0);
    return api.edit_start(table, identifier, take_pointed(call));
}

static uint32_t do_edit_begin(struct Call* call) {
    int32_t table = take_number(), record = take_number();
    return api.edit_begin(table, record, take_pointed(call));
}

static uint32_t do_set_field(struct Call* call) {
    int32_t table = take_number(), record = take_number();
    const char* name = take_text(call, 0);
    return api.set_field(table, record, name, take_text(call, 1));
}

static uint32_t do_edit_end(struct Call* call) {
    (void)call;
    int32_t table = take_number();
    return api.edit_end(table, take_number());
}

static uint32_t do_firm(struct Call* call) { return api.get_my_firm(take_written(call, 0)); }

static uint32_t do_get_uid(struct Call* call) {
    int32_t table = take_number();
    const char* key = take_text(call, 0);
    return api.get_uid(table, key, take_written(call, 1));
}

static const struct {
    const char* name;
    uint32_t (*run)(struct Call* call);
} kCommands[] = {
    {"init", do_initialize},
    {"shutdown", do_shut_down},
    {"added", do_added},
    {"deleted", do_deleted},
    {"addstart", do_add_start},
    {"addend", do_add_end},
    {"editstart", do_edit_start},
    {"editbegin", do_edit_begin},
    {"setfield", do_set_field},
    {"editend", do_edit_end},
    {"firm", do_firm},
    {"getuid", do_get_uid},
};

static int all_guards_intact(const struct Call* call) {
    int intact = call->p[0] == call->p[2];
    for (int i = 0; i < 2; ++i) {
        if (call->texts[i].block && !guards_intact(&call->texts[i])) intact = 0;
    }
    return intact;
}

static void answer(uint32_t rc, const struct Call* call) {
    const struct Buffer* buffer = call->written;
    printf("{\"rc\": %ld, \"p\": %ld, \"buffer\": \"", (long)(int32_t)rc, (long)call->p[1]);
    for (size_t i = 0; buffer && i < buffer->size; ++i)
        printf("%02x", (unsigned char)buffer->bytes[i]);
    printf("\", \"guards\": %s}\n", all_guards_intact(call) ? "true" : "false");
    fflush(stdout);
}

static void execute(const char* command) {
    size_t i = 0, count = sizeof kCommands / sizeof *kCommands;
    while (i < count && strcmp(command, kCommands[i].name)) ++i;
    if (i == count) fail("unknown command", command);
    struct Call call = {{{NULL, NULL, 0}, {NULL, NULL, 0}}, NULL, {0x5A5A5A5A, 0, 0x5A5A5A5A}};
    uint32_t rc = kCommands[i].run(&call);
    answer(rc, &call);
    for (i = 0; i < 2; ++i) free(call.texts[i].block);
}

// The next line without its end, in a buffer that grows as needed; NULL at the end of the input.
static char* read_line(void) {
    static char* line = NULL;
    static size_t room = 0;
    size_t length = 0;
    for (int c = getchar(); c != '\n'; c = getchar()) {
        if (c == EOF) {
            free(line);
            return line = NULL;
        }
        if (length + 1 >= room) line = realloc(line, room = 2 * room + 256);
        if (!line) fail("memory", "none left");
        line[length++] = (char)c;
    }
    if (!line) fail("empty line", "");
    line[length] = '\0';
    return line;
}

int main(int argc, char** argv) {
    if (argc != 2) fail("usage", "host LIBRARY");
    bind(argv[1]);
    for (char* line = read_line(); line; line = read_line()) {
        const char* command = strtok(line, " ");
        if (command) execute(command);
    }
    return 0;
}
