/* A telephone program: who is calling, which of the caller's matters are open, and a note of the
 * call.
 *
 *     telephone PRACTICE NUMBER [BRENIK]
 *
 * The library changes a practice; it does not search one by telephone number. So the records are
 * read by the companion tool, as JSON with one record per line. The note is added by the library,
 * like every change. BRENIK is the path of the tool; without it the system searches for it. */

#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "brenikdb.h"

#ifdef _WIN32
#define popen _popen
#define pclose _pclose
#define QUOTE "\"" /* the command interpreter drops the first and the last quote of a command */
#else
#define QUOTE ""
#endif

enum { kNotes = 4, kNewRecord = 0, kIdentifierSize = 8, kTextSize = 256, kLineSize = 1 << 16 };

static const char* practice;
static const char* tool = "brenik";

static void fail(const char* what, const char* cause) {
    fprintf(stderr, "%s: %s\n", what, cause);
    exit(1);
}

/* What the tool shows of a table; pclose it. `chosen` selects the records. */
static FILE* open_records(const char* table, const char* chosen) {
    char command[4096];
    FILE* records;
    const int length =
        snprintf(command, sizeof command, QUOTE "\"%s\" show \"%s\" %s --json %s" QUOTE, tool,
                 practice, table, chosen);
    if (length < 0 || (size_t)length >= sizeof command) fail(practice, "the path is too long");
    fflush(stdout);
    records = popen(command, "r");
    if (!records) fail(tool, "cannot be started");
    return records;
}

static void close_records(FILE* records) {
    if (pclose(records) != 0) fail(tool, "could not show the practice");
}

/* Reads the next record that is not deleted; 0 at the end. */
static int next_record(FILE* records, char line[kLineSize]) {
    while (fgets(line, kLineSize, records)) {
        if (strstr(line, "\"deleted\":false")) return 1;
    }
    return 0;
}

/* The text of a field. It is empty if the field is empty or not a text. */
static const char* text_of(const char* line, const char* field, char text[kTextSize]) {
    char key[32];
    const char* from;
    size_t length = 0;
    snprintf(key, sizeof key, "\"%s\":\"", field);
    from = strstr(line, key);
    for (from = from ? from + strlen(key) : "\""; *from && *from != '"'; ++from) {
        if (*from == '\\' && (from[1] == '"' || from[1] == '\\')) ++from;
        if (length < kTextSize - 1) text[length++] = *from;
    }
    text[length] = '\0';
    return text;
}

static int same_number(const char* a, const char* b) {
    size_t compared = 0;
    for (;;) {
        while (*a && !isdigit((unsigned char)*a)) ++a;
        while (*b && !isdigit((unsigned char)*b)) ++b;
        if (*a != *b) return 0;
        if (!*a) return compared > 0;
        ++a, ++b, ++compared;
    }
}

static int has_number(const char* line, const char* number) {
    static const char* const kTelephones[] = {"DAYPHONE", "EVEPHONE", "PHONE3", "PHONE4"};
    char text[kTextSize];
    size_t i;
    for (i = 0; i < sizeof kTelephones / sizeof *kTelephones; ++i) {
        if (same_number(text_of(line, kTelephones[i], text), number)) return 1;
    }
    return 0;
}

/* Prints the contacts that have the number, and returns how many there are. */
static int print_callers(const char* number, char contact[kTextSize]) {
    static char line[kLineSize];
    char last[kTextSize], first[kTextSize];
    int found = 0;
    FILE* records = open_records("LAW1", "--all");
    while (next_record(records, line)) {
        if (!has_number(line, number)) continue;
        ++found;
        printf("caller %s %s, %s\n", text_of(line, "U_ID", contact), text_of(line, "LAST", last),
               text_of(line, "FIRST", first));
    }
    close_records(records);
    return found;
}

/* What is read from the practice must not become a command of its own. */
static void require_identifier(const char* text) {
    const char* end = text;
    while (isalnum((unsigned char)*end)) ++end;
    if (*end) fail(text, "is no identifier of a matter");
}

/* Prints the matter if it is open; returns how many it printed. */
static int print_open_matter(const char* u_id) {
    static char line[kLineSize];
    char chosen[kTextSize + 32], number[kTextSize], title[kTextSize];
    int found = 0;
    FILE* records;
    require_identifier(u_id);
    snprintf(chosen, sizeof chosen, "--order U_ID --seek %s", u_id);
    records = open_records("LAW3", chosen);
    while (next_record(records, line)) {
        if (!strstr(line, "\"ACTIVE\":true")) continue;
        ++found;
        printf("matter %s %s\n", text_of(line, "CASENUM", number), text_of(line, "MATTER", title));
    }
    pclose(records); /* fails if the matter no longer exists, which the tool reports */
    return found;
}

/* A cross-reference ties a contact (U_ID1) to a matter (U_ID3). */
static int print_open_matters(const char* contact) {
    static char line[kLineSize];
    char text[kTextSize];
    int found = 0;
    FILE* records = open_records("LAW9", "--all");
    while (next_record(records, line)) {
        if (strcmp(text_of(line, "U_ID1", text), contact) != 0) continue;
        if (*text_of(line, "U_ID3", text)) found += print_open_matter(text);
    }
    close_records(records);
    return found;
}

static void require(BrenikCode code, const char* function) {
    char text[32];
    if (code == BRENIK_SUCCESS) return;
    BrenikShutDown();
    snprintf(text, sizeof text, "code %u", code);
    fail(function, text);
}

/* The texts are ASCII. Others would have to be converted to the practice's code page. */
static void note_call(const char* contact, const char* text) {
    char u_id[kIdentifierSize] = "";
    int p = 0;
    require(BrenikInitialize(practice, 0, 0), "BrenikInitialize");
    require(BrenikAddStart(kNotes, &p), "BrenikAddStart");
    require(BrenikSetField(kNotes, kNewRecord, "NAME_UID", contact), "BrenikSetField");
    require(BrenikSetField(kNotes, kNewRecord, "TOPIC", "Telephone call"), "BrenikSetField");
    require(BrenikSetField(kNotes, kNewRecord, "NOTE", text), "BrenikSetField");
    require(BrenikAddEnd(kNotes, u_id), "BrenikAddEnd");
    require(BrenikShutDown(), "BrenikShutDown");
    printf("note %s\n", u_id);
}

int main(int argc, char** argv) {
    char contact[kTextSize], text[kTextSize];
    int callers;
    if (argc < 3 || argc > 4) {
        fprintf(stderr, "usage: %s PRACTICE NUMBER [BRENIK]\n", argv[0]);
        return 2;
    }
    practice = argv[1];
    if (argc == 4) tool = argv[3];
    callers = print_callers(argv[2], contact);
    if (callers != 1) {
        fprintf(stderr, "%d contacts have the number %s: the call is not noted\n", callers,
                argv[2]);
        return 1;
    }
    snprintf(text, sizeof text, "Called from %.100s. Open matters: %d.", argv[2],
             print_open_matters(contact));
    note_call(contact, text);
    return 0;
}
