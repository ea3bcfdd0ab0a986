/* A host program: it works on a practice through the library's exports.
 *
 *     host PRACTICE [--step]
 *
 * It prints one line per call, with the result. With --step it waits for a line on standard input
 * after each call, so that another program can read the files in between.
 *
 * The practice should be a fresh sample. Its last contact was added, and its first deleted contact
 * deleted, without the library; the host reports both. Their record numbers are below. */

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "brenikdb.h"

enum { kNames = 1, kMatters = 3, kCodes = 7 };
enum { kContactAddedElsewhere = 60, kContactDeletedElsewhere = 25 };
enum { kCurrentRecord = 0, kIdentifierSize = 9, kFirmLength = 400 };

static int stepping;

/* Prints a call and its result, waits if stepping, and returns the result. */
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
    called(BrenikAddStart(table, &p), "BrenikAddStart(%d, &p)", table);
}

static void edit_start(int table, const char* u_id) {
    int p = 0;
    called(BrenikEditStart(table, u_id, &p), "BrenikEditStart(%d, \"%s\", &p)", table, u_id);
}

/* Record 0 means the current record. It suits a record that is being added, or one found by its
 * identifier if no other call came in between. After BrenikEditBegin pass the record's number. */
static void set_field(int table, const char* field, const char* value) {
    called(BrenikSetField(table, kCurrentRecord, field, value),
           "BrenikSetField(%d, 0, \"%s\", \"%s\")", table, field, value);
}

/* On entry the buffer may hold the identifier of a contact to link; on return, the new record's. */
static void add_end(int table, char* u_id) {
    char given[kIdentifierSize];
    strcpy(given, u_id);
    const BrenikCode code = BrenikAddEnd(table, u_id);
    called(code, "BrenikAddEnd(%d, \"%s\" -> \"%s\")", table, given, u_id);
}

static void edit_end(int table) {
    called(BrenikEditEnd(table, kCurrentRecord), "BrenikEditEnd(%d, 0)", table);
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
    code = BrenikGetU_ID(kNames, "okafor", found);
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
    edit_start(kNames, contact);
    set_field(kNames, "CITY", "Fairhaven");
    edit_end(kNames);

    heading("Records that another program added and deleted, reported for the journal");
    called(BrenikAddedRecord(kNames, kContactAddedElsewhere), "BrenikAddedRecord(%d, %d)", kNames,
           kContactAddedElsewhere);
    called(BrenikDeletedRecord(kNames, kContactDeletedElsewhere), "BrenikDeletedRecord(%d, %d)",
           kNames, kContactDeletedElsewhere);

    heading("The practice's own firm");
    memset(firm, ' ', kFirmLength); /* the result is at most as long as this text */
    code = BrenikGetMyFirm(firm);
    called(code, "BrenikGetMyFirm(\"%s\")", firm);
}

int main(int argc, char** argv) {
    const char* practice = NULL;
    int i;
    for (i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--step") == 0) {
            stepping = 1;
        } else {
            practice = argv[i];
        }
    }
    if (!practice) {
        fprintf(stderr, "usage: %s PRACTICE [--step]\n", argv[0]);
        return 2;
    }

    heading("Start, with tracing");
    if (called(BrenikInitialize(practice, 1, 0), "BrenikInitialize(\"%s\", 1, 0)", practice) != 0) {
        return 1;
    }
    work();
    heading("The end");
    return called(BrenikShutDown(), "BrenikShutDown()") == 0 ? 0 : 1;
}
