/* A host program: it loads the library at run time and works on a practice through the exports.
 *
 *     example_host PRACTICE [--step] [--library PATH]
 *
 * One line is printed for each call, with its result. With --step the host then waits for a line on
 * standard input before it goes on, so that somebody else can look at the files in between.
 *
 * The practice should be a fresh sample: its last contact and its first deleted contact, whose
 * record numbers are below, were changed without the library and are reported to it here. */

#include <dlfcn.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "brenikdb.h"

enum { kNames = 1, kMatters = 3, kCodes = 7 };
enum { kContactAddedElsewhere = 60, kContactDeletedElsewhere = 25 };
enum { kCurrentRecord = 0, kIdentifierSize = 9, kFirmLength = 400 };

/* The exports that this host uses, of the types that the public header gives them. */
static struct {
    __typeof__(BrenikInitialize)* initialize;
    __typeof__(BrenikShutDown)* shut_down;
    __typeof__(BrenikAddedRecord)* added_record;
    __typeof__(BrenikDeletedRecord)* deleted_record;
    __typeof__(BrenikAddStart)* add_start;
    __typeof__(BrenikAddEnd)* add_end;
    __typeof__(BrenikEditStart)* edit_start;
    __typeof__(BrenikSetField)* set_field;
    __typeof__(BrenikEditEnd)* edit_end;
    __typeof__(BrenikGetMyFirm)* get_my_firm;
    __typeof__(BrenikGetU_ID)* get_u_id;
} api;

static int stepping;

static int load(const char* path) {
    static const struct {
        const char* name;
        void* target;
    } exports[] = {
        {"BrenikInitialize", &api.initialize},    {"BrenikShutDown", &api.shut_down},
        {"BrenikAddedRecord", &api.added_record}, {"BrenikDeletedRecord", &api.deleted_record},
        {"BrenikAddStart", &api.add_start},       {"BrenikAddEnd", &api.add_end},
        {"BrenikEditStart", &api.edit_start},     {"BrenikSetField", &api.set_field},
        {"BrenikEditEnd", &api.edit_end},         {"BrenikGetMyFirm", &api.get_my_firm},
        {"BrenikGetU_ID", &api.get_u_id},
    };
    void* library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    size_t i;
    for (i = 0; library && i < sizeof exports / sizeof *exports; ++i) {
        void* symbol = dlsym(library, exports[i].name);
        if (!symbol) break;
        memcpy(exports[i].target, &symbol, sizeof symbol);
    }
    if (library && i == sizeof exports / sizeof *exports) return 1;
    fprintf(stderr, "%s\n", dlerror());
    return 0;
}

/* Prints a call and its result, waits when stepping, and hands the result on. */
static BrenikCode called(BrenikCode code, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vprintf(format, arguments);
    va_end(arguments);
    printf(" = %u\n", code);
    fflush(stdout);
    while (stepping) {
        const int c = getchar();
        if (c == EOF || c == '\n') break;
    }
    return code;
}

static void heading(const char* text) { printf("\n-- %s\n", text); }

static void add_start(int table) {
    int p = 0;
    called(api.add_start(table, &p), "BrenikAddStart(%d, &p)", table);
}

static void edit_start(int table, const char* u_id) {
    int p = 0;
    called(api.edit_start(table, u_id, &p), "BrenikEditStart(%d, \"%s\", &p)", table, u_id);
}

static void set_field(int table, const char* field, const char* value) {
    called(api.set_field(table, kCurrentRecord, field, value),
           "BrenikSetField(%d, 0, \"%s\", \"%s\")", table, field, value);
}

/* On entry the buffer may hold the identifier of a contact to link; afterwards the new record's. */
static void add_end(int table, char* u_id) {
    char given[kIdentifierSize];
    strcpy(given, u_id);
    const BrenikCode code = api.add_end(table, u_id);
    called(code, "BrenikAddEnd(%d, \"%s\" -> \"%s\")", table, given, u_id);
}

static void edit_end(int table) {
    called(api.edit_end(table, kCurrentRecord), "BrenikEditEnd(%d, 0)", table);
}

static void add_code(const char* type, const char* code) {
    char u_id[kIdentifierSize] = "";
    add_start(kCodes);
    set_field(kCodes, "TYPE", type);
    set_field(kCodes, "CODE", code);
    set_field(kCodes, "RATE", "175.50");
    add_end(kCodes, u_id);
}

static void work(void) {
    char contact[kIdentifierSize] = "", found[kIdentifierSize] = "       ";
    char matter[kIdentifierSize];
    char firm[kFirmLength + 2] = "";
    BrenikCode code;

    heading("A new contact");
    add_start(kNames);
    set_field(kNames, "ID", "OKAFOR");
    set_field(kNames, "LAST", "Okafor");
    set_field(kNames, "FIRST", "Adaeze");
    set_field(kNames, "DAYPHONE", "(207) 555-0142");
    set_field(kNames, "BALANCE", "1250.75");
    add_end(kNames, contact);

    heading("The same contact, found by its ID");
    code = api.get_u_id(kNames, "okafor", found);
    called(code, "BrenikGetU_ID(%d, \"okafor\" -> \"%s\")", kNames, found);

    heading("A matter for that contact");
    add_start(kMatters);
    set_field(kMatters, "CASENUM", "2024-OKAFOR-1");
    set_field(kMatters, "MATTER", "Okafor v. Thackeray");
    strcpy(matter, found);
    add_end(kMatters, matter);

    heading("A code, and the same code again: 18, it exists");
    add_code("ACTIVITY", "Mediation");
    add_code("ACTIVITY", "Mediation");

    heading("Two edits of the contact");
    edit_start(kNames, contact);
    set_field(kNames, "CITY", "Dunmore");
    set_field(kNames, "ACTIVE", "N");
    edit_end(kNames);
    if (stepping) sleep(2); /* stamps count in units of two seconds: let the two edits differ */
    edit_start(kNames, contact);
    set_field(kNames, "CITY", "Fairhaven");
    edit_end(kNames);

    heading("Records that another program added and deleted, reported for the journal");
    called(api.added_record(kNames, kContactAddedElsewhere), "BrenikAddedRecord(%d, %d)", kNames,
           kContactAddedElsewhere);
    called(api.deleted_record(kNames, kContactDeletedElsewhere), "BrenikDeletedRecord(%d, %d)",
           kNames, kContactDeletedElsewhere);

    heading("The practice's own firm");
    memset(firm, ' ', kFirmLength); /* the primed length is the most that comes back */
    code = api.get_my_firm(firm);
    called(code, "BrenikGetMyFirm(\"%s\")", firm);
}

int main(int argc, char** argv) {
    const char* practice = NULL;
    const char* library = "build/native/libBrenikDB.so";
    int i;
    for (i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--step") == 0) {
            stepping = 1;
        } else if (strcmp(argv[i], "--library") == 0 && i + 1 < argc) {
            library = argv[++i];
        } else {
            practice = argv[i];
        }
    }
    if (!practice) {
        fprintf(stderr, "usage: %s PRACTICE [--step] [--library PATH]\n", argv[0]);
        return 2;
    }
    if (!load(library)) return 3;

    heading("Start, with tracing");
    if (called(api.initialize(practice, 1, 0), "BrenikInitialize(\"%s\", 1, 0)", practice) != 0) {
        return 1;
    }
    work();
    heading("The end");
    return called(api.shut_down(), "BrenikShutDown()") == 0 ? 0 : 1;
}
