// A host program in the smallest form: it loads the library whose path is its only argument and
// makes one call for every line that it reads. The tests drive it through two pipes, so that
// whatever happens to a host happens to this process and not to the tests.
//
// A line is a command and its arguments; numbers are decimal, with a p before one that goes behind
// a pointer; texts and buffers are written as x followed by hex digits. Every line is answered by
// one JSON object: "rc" is the call's result, "p" the integer behind the pointer afterwards,
// "buffer" the last text afterwards, exactly as long as it was given, and "guards" tells whether
// the bytes around both are untouched. Where a client library is named, commands of their own steer
// and question the stand-in for it.

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "brenikdb.h"

#ifdef _WIN32
#include <windows.h>
#define LOAD_LIBRARY(path) LoadLibraryA(path)
#define FIND_SYMBOL(from, name) GetProcAddress(from, name)
typedef FARPROC Symbol;
#else
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>
#define LOAD_LIBRARY(path) dlopen(path, RTLD_NOW | RTLD_LOCAL)
#define FIND_SYMBOL(from, name) dlsym(from, name)
typedef void* Symbol;
#endif

enum { kGuardSize = 32, kGuardByte = 0xA5 };

typedef void (*EntryPoint)(void);

static void* library;
static void* client;

static void fail(const char* what, const char* detail) {
    fprintf(stderr, "host: %s: %s\n", what, detail);
    exit(2);
}

static EntryPoint entry_point(void* from, const char* name) {
    EntryPoint found;
    const Symbol symbol = FIND_SYMBOL(from, name);
    if (!symbol) fail("entry point missing", name);
    memcpy(&found, &symbol, sizeof found);
    return found;
}

#define CALL(name) ((__typeof__(&name))entry_point(library, #name))

// A text or buffer argument, with guard bytes before it and behind it.
struct Buffer {
    unsigned char* block;
    char* bytes;
    size_t size;
};

// The stand-in for the client library: its controls, and a setting of its process.
static EntryPoint client_entry_point(const char* name) {
    const char* path = getenv("BRENIK_ACE_LIBRARY");
    if (!client && path) client = LOAD_LIBRARY(path);
    if (!client) fail("not loaded", path ? path : "the client library");
    return entry_point(client, name);
}

#define CLIENT(type, name) ((type)client_entry_point(name))

typedef int(BRENIK_CALL* Control)(const char*);
typedef unsigned(BRENIK_CALL* Count)(const char*);
typedef const char*(BRENIK_CALL* Told)(void);
typedef uint32_t(BRENIK_CALL* SetNumber)(uint16_t);
typedef uint32_t(BRENIK_CALL* SetText)(const char*);

static uint32_t violations(char* text, size_t size) {
    snprintf(text, size, "%s", CLIENT(Told, "StandInViolations")());
    return CLIENT(Count, "StandInCount")("violations");
}

// The arguments of one call, in their order among those of their kind. What is behind a pointer to
// an integer stands between two guards; the last text is the one that a call may write to.
struct Call {
    struct Buffer texts[2];
    int32_t numbers[2], p[3];
    size_t text_count, number_count;
};

static struct Buffer new_buffer(const char* hex) {
    struct Buffer buffer = {NULL, NULL, strlen(hex) / 2};
    buffer.block = malloc(buffer.size + 2 * kGuardSize);
    if (!buffer.block) fail("memory", "none left");
    memset(buffer.block, kGuardByte, buffer.size + 2 * kGuardSize);
    buffer.bytes = (char*)buffer.block + kGuardSize;
    for (size_t i = 0; i < buffer.size; ++i) {
        const char digits[3] = {hex[2 * i], hex[2 * i + 1], 0};
        buffer.bytes[i] = (char)strtoul(digits, NULL, 16);
    }
    return buffer;
}

static void take_arguments(struct Call* call) {
    for (const char* word = strtok(NULL, " \n"); word; word = strtok(NULL, " \n")) {
        const int32_t number = (int32_t)strtoll(word + (*word == 'p'), NULL, 10);
        if (*word == 'x' && call->text_count < 2) {
            call->texts[call->text_count++] = new_buffer(word + 1);
        } else if (*word == 'p') {
            call->p[1] = number;
        } else if (*word != 'x' && call->number_count < 2) {
            call->numbers[call->number_count++] = number;
        } else {
            fail("one argument too many", word);
        }
    }
}

// The child answers and goes on with our pipes, until it is told to end; then its parent answers.
static uint32_t fork_host(void) {
#ifndef _WIN32
    int status;
    const pid_t child = fork();
    if (child == 0) return 0;
    if (child > 0 && waitpid(child, &status, 0) == child) return (uint32_t)status;
#endif
    fail("fork", "not possible");
    return 0;
}

static uint32_t run(const char* command, struct Call* call) {
    char *text = call->texts[0].bytes, *other = call->texts[1].bytes;
    const int32_t first = call->numbers[0], second = call->numbers[1];
    int32_t* p = &call->p[1];
    if (!strcmp(command, "init")) return CALL(BrenikInitialize)(text, first, second);
    if (!strcmp(command, "shutdown")) return CALL(BrenikShutDown)();
    if (!strcmp(command, "added")) return CALL(BrenikAddedRecord)(first, second);
    if (!strcmp(command, "deleted")) return CALL(BrenikDeletedRecord)(first, second);
    if (!strcmp(command, "addstart")) return CALL(BrenikAddStart)(first, p);
    if (!strcmp(command, "addend")) return CALL(BrenikAddEnd)(first, text);
    if (!strcmp(command, "editstart")) return CALL(BrenikEditStart)(first, text, p);
    if (!strcmp(command, "editbegin")) return CALL(BrenikEditBegin)(first, second, p);
    if (!strcmp(command, "setfield")) return CALL(BrenikSetField)(first, second, text, other);
    if (!strcmp(command, "editend")) return CALL(BrenikEditEnd)(first, second);
    if (!strcmp(command, "firm")) return CALL(BrenikGetMyFirm)(text);
    if (!strcmp(command, "getuid")) return CALL(BrenikGetU_ID)(first, text, other);
    if (!strcmp(command, "control")) return (uint32_t)CLIENT(Control, "StandInControl")(text);
    if (!strcmp(command, "count")) return CLIENT(Count, "StandInCount")(text);
    if (!strcmp(command, "violations")) return violations(text, call->texts[0].size);
    if (!strcmp(command, "settext")) return CLIENT(SetText, text)(other);
    if (!strcmp(command, "setnumber")) return CLIENT(SetNumber, text)((uint16_t)first);
    if (!strcmp(command, "fork")) return fork_host();
    if (!strcmp(command, "end")) exit(0);
    fail("unknown command", command);
    return 0;
}

static int guards_intact(const struct Call* call) {
    int intact = call->p[0] == call->p[2];
    for (size_t text = 0; text < call->text_count; ++text) {
        const struct Buffer* buffer = &call->texts[text];
        for (size_t i = 0; i < kGuardSize; ++i) {
            intact &= buffer->block[i] == kGuardByte;
            intact &= buffer->block[kGuardSize + buffer->size + i] == kGuardByte;
        }
    }
    return intact;
}

static void execute(const char* command) {
    struct Call call = {.p = {0x5A5A5A5A, 0, 0x5A5A5A5A}};
    take_arguments(&call);
    const uint32_t rc = run(command, &call);
    printf("{\"rc\": %ld, \"p\": %ld, \"buffer\": \"", (long)(int32_t)rc, (long)call.p[1]);
    const struct Buffer* buffer = &call.texts[call.text_count ? call.text_count - 1 : 0];
    for (size_t i = 0; i < buffer->size; ++i) printf("%02x", (unsigned char)buffer->bytes[i]);
    printf("\", \"guards\": %s}\n", guards_intact(&call) ? "true" : "false");
    fflush(stdout);
    for (size_t i = 0; i < call.text_count; ++i) free(call.texts[i].block);
}

int main(int argc, char** argv) {
    static char line[1 << 20];
    if (argc != 2) fail("usage", "host LIBRARY");
    library = LOAD_LIBRARY(argv[1]);
    if (!library) fail("not loaded", argv[1]);
    while (fgets(line, sizeof line, stdin)) {
        if (!strchr(line, '\n')) fail("a line is too long", "");
        const char* command = strtok(line, " \n");
        if (command) execute(command);
    }
    return 0;
}
