/* BrenikDB: add and change records in a practice's shared database.
 *
 * Conventions, stated once:
 *
 *  1. Call BrenikInitialize first and BrenikShutDown last. Between them run any number of record
 *     calls. The library serves one thread at a time; it takes no lock of its own.
 *
 *  2. Every function answers a BrenikCode, listed below. BRENIK_SUCCESS is 0. No failure leaves the
 *     library in any other form. BRENIK_FAULT (14) and BRENIK_NOT_REGISTERED (11) can come from
 *     every function and are not repeated there.
 *
 *  3. A table is named by its number:
 *         1 Names (contacts)   2 Events   3 Matters   4 notes   5 the system table
 *         7 code lists         9 cross-references    20 the change journal
 *     Table 5 is the library's own: hosts do not select it.
 *     Records are numbered from 1. Where a function says so, record 0 means the current record.
 *     BrenikGetU_ID, BrenikAddedRecord and BrenikDeletedRecord make another record current. So pass
 *     a record's own number to BrenikSetField and BrenikEditEnd: when it is not the current one any
 *     more they answer BRENIK_BAD_RECORD, where record 0 would overwrite another record. A record
 *     that is being added has no number yet; it takes 0.
 *
 *  4. A change is a transaction on one table:
 *         add:   BrenikAddStart, BrenikSetField for each field, BrenikAddEnd
 *         edit:  BrenikEditStart or BrenikEditBegin, BrenikSetField for each field, BrenikEditEnd
 *     Nothing reaches the table before the End. A Start, a look-up or a notification on another
 *     table in between makes the End answer BRENIK_NOT_CURRENT. There is one transaction at a time;
 *     a second Start replaces the first. A Start that fails begins nothing: do not call its End.
 *
 *  5. Strings end with a NUL and are bytes in the practice's own code page. No pointer may be null:
 *     none is looked at before it is used, and a null one crashes the host.
 *
 *  6. A buffer that receives text must have the size that its function names. Two functions put the
 *     final NUL one byte past the end of the text; read their copy-back rules before calling.
 *     After BRENIK_FAULT and BRENIK_NOT_REGISTERED no text has been copied back.
 *
 *  7. Locked records and tables are retried for about five seconds, during which the call blocks
 *     and a notice may be shown. Where nobody sits at the screen, set BRENIK_UI=none in the
 *     environment.
 *
 *  8. On 32-bit Windows every function but BrenikShutDown removes its own arguments from the stack
 *     (BRENIK_CALL); BrenikShutDown uses the C convention.
 */
#ifndef BRENIKDB_H
#define BRENIKDB_H

#if defined(_WIN32) && !defined(_WIN64)
#define BRENIK_CALL __stdcall
#else
#define BRENIK_CALL
#endif

#if defined(BRENIK_BUILDING) && !defined(_WIN32)
#define BRENIK_EXPORT __attribute__((visibility("default")))
#else
#define BRENIK_EXPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The result of every function: unsigned, 32 bits wide. */
typedef unsigned int BrenikCode;

/* What happened, and what a host does about it. */
enum {
    /* Done. */
    BRENIK_SUCCESS = 0,
    /* LAWSYS.DBF or LAW1.DBF is not in the data folder: check the path. */
    BRENIK_DATA_FILES_MISSING = 1,
    /* LAW1.CDX or LAW2.CDX is missing: rebuild the practice's indexes. */
    BRENIK_INDEX_FILES_MISSING = 2,
    /* The system table cannot be opened: a file of it is missing, not permitted, somebody else's or
     * damaged; the fault file says which and why ("brenik faults" prints it). */
    BRENIK_SYSTEM_TABLE_NOT_OPENED = 3,
    /* Another table cannot be opened: likewise. Of an added matter only the link is missing. */
    BRENIK_TABLE_NOT_OPENED = 4,
    /* The table number is out of range or its table is not open: correct the call. */
    BRENIK_BAD_TABLE = 5,
    /* No such record, not the current one, not deleted, or no Start was made: correct the call. */
    BRENIK_BAD_RECORD = 6,
    /* The table has no field of that name; the other fields are unaffected. */
    BRENIK_UNKNOWN_FIELD = 7,
    /* The addition could not be noted in the change journal: report it again later. */
    BRENIK_ADDITION_NOT_STAMPED = 8,
    /* The edit could not be written or noted: try BrenikEditEnd again. */
    BRENIK_EDIT_NOT_STAMPED = 9,
    /* The deletion could not be noted in the change journal: report it again later. */
    BRENIK_DELETION_NOT_STAMPED = 10,
    /* This build of the library lacks the operation: replace the library. */
    BRENIK_NOT_REGISTERED = 11,
    /* Another workstation holds the record: try BrenikEditEnd again later. */
    BRENIK_LOCK_REFUSED = 12,
    /* The table is not the one that the Start chose: begin the transaction again. */
    BRENIK_NOT_CURRENT = 13,
    /* A damaged file, a full disk or the like stopped the call; the fault file has one line with
     * the reason. The session stays usable and holds no lock; begin the transaction again once the
     * reason is gone. In the child of a fork every call is stopped until BrenikInitialize begins a
     * session there. */
    BRENIK_FAULT = 14,
    /* The session has already been shut down: nothing to do. */
    BRENIK_ALREADY_SHUT_DOWN = 15,
    /* No record has that identifier; of an added matter only the link is missing. */
    BRENIK_IDENTIFIER_NOT_FOUND = 16,
    /* The record could not be appended, because a lock stayed another workstation's: try again, for
     * a matter with its contact in the buffer once more. When a matter's identifier is handed back,
     * it is added, and only its link is missing. */
    BRENIK_APPEND_FAILED = 17,
    /* The code exists already; its identifier is handed back. */
    BRENIK_DUPLICATE_CODE = 18,
    /* No record has that key, or the key is blank. */
    BRENIK_KEY_NOT_FOUND = 19
};

/* Opens the practice in a folder and empties the trace log there.
 *   data_path  the folder; blank for the current one. A relative one is resolved here, once. On
 *              Windows its characters are those of the process's ANSI code page.
 *   trace      not 0: every call is written to "Trace.Log" in the folder. The workstation's setting
 *              APITracing overrides it.
 *   reserved   not used
 * BRENIK_SUCCESS, BRENIK_DATA_FILES_MISSING, BRENIK_INDEX_FILES_MISSING,
 * BRENIK_SYSTEM_TABLE_NOT_OPENED, BRENIK_TABLE_NOT_OPENED. After a failure tables may be open; call
 * nothing but BrenikShutDown, or BrenikInitialize again. What an earlier session left open in
 * another folder is closed first, and its transaction is dropped.
 *
 *     BrenikCode code = BrenikInitialize("C:\\Practice", 1, 0);
 *     if (code != BRENIK_SUCCESS) {
 *         printf("cannot open the practice: %u\n", code);
 *         return 1;
 *     }
 */
BRENIK_EXPORT BrenikCode BRENIK_CALL BrenikInitialize(const char* data_path, int trace,
                                                      int reserved);

/* Closes every table and gives up every lock, whatever fails.
 * BRENIK_SUCCESS, BRENIK_ALREADY_SHUT_DOWN.
 *
 *     if (BrenikShutDown() == BRENIK_ALREADY_SHUT_DOWN) {
 *         puts("was closed before");
 *     }
 */
BRENIK_EXPORT BrenikCode BrenikShutDown(void);

/* Notes in the change journal that the host itself appended a record. The table becomes current, on
 * that record.
 * BRENIK_SUCCESS, BRENIK_BAD_TABLE, BRENIK_BAD_RECORD (no such record),
 * BRENIK_ADDITION_NOT_STAMPED (no identifier in the record, or the journal is locked).
 *
 *     int record = host_append(names);
 *     BrenikCode code = BrenikAddedRecord(1, record);
 *     if (code == BRENIK_ADDITION_NOT_STAMPED) {
 *         remember_for_later(1, record);
 *     }
 */
BRENIK_EXPORT BrenikCode BRENIK_CALL BrenikAddedRecord(int table, int record);

/* Notes in the change journal that the host itself marked a record deleted; a deletion is noted
 * once. The table becomes current, on that record; without such a table Names does.
 * BRENIK_SUCCESS, BRENIK_BAD_TABLE, BRENIK_BAD_RECORD (no such record, or it is not deleted),
 * BRENIK_DELETION_NOT_STAMPED.
 *
 *     host_delete(names, record);
 *     if (BrenikDeletedRecord(1, record) != BRENIK_SUCCESS) {
 *         remember_for_later(1, record);
 *     }
 */
BRENIK_EXPORT BrenikCode BRENIK_CALL BrenikDeletedRecord(int table, int record);

/* Begins a new record with empty fields; new contacts are active. Nothing is locked or appended.
 *   in_out  receives the table number, whatever the outcome; its value on entry is not used
 * BRENIK_SUCCESS, BRENIK_BAD_TABLE.
 *
 *     int number = 0;
 *     char uid[8] = "";
 *     BrenikAddStart(1, &number);
 *     BrenikSetField(1, 0, "LAST", "Ives");
 *     BrenikAddEnd(1, uid);
 */
BRENIK_EXPORT BrenikCode BRENIK_CALL BrenikAddStart(int table, int* in_out);

/* Appends the record that was begun, and hands back its identifier.
 *   identifier  at least 8 bytes. On entry, for a matter: the identifier of the contact to link it
 *               to, counted only when it is exactly 7 characters long. On return: always 7
 *               characters and a NUL at identifier[7]; the identifier of the table's current
 *               record, which is blank when nothing could be appended, and the existing code's
 *               after BRENIK_DUPLICATE_CODE. After BRENIK_NOT_CURRENT nothing was added, and it is
 *               the text given, or blanks: look at the code first.
 * BRENIK_SUCCESS, BRENIK_NOT_CURRENT, BRENIK_APPEND_FAILED, BRENIK_DUPLICATE_CODE (table 7); for a
 * matter also BRENIK_IDENTIFIER_NOT_FOUND and BRENIK_TABLE_NOT_OPENED: it is added, but not linked.
 * So it is after BRENIK_APPEND_FAILED with an identifier: do not add that matter again.
 *
 *     char uid[8];
 *     strcpy(uid, contact_uid);
 *     BrenikAddStart(3, &number);
 *     BrenikSetField(3, 0, "CASENUM", "2024-17");
 *     BrenikAddEnd(3, uid);
 */
BRENIK_EXPORT BrenikCode BRENIK_CALL BrenikAddEnd(int table, char* identifier);

/* Begins an edit of the record with an identifier, or of the first one that begins with it.
 *   in_out  receives the table number, whatever the outcome; its value on entry is not used
 * The record's number is not handed back, so its fields and its End take record 0: call nothing but
 * BrenikSetField before BrenikEditEnd. On table 7 the order of the identifiers then stays active,
 * in which BrenikAddEnd finds no duplicate code any more: add codes first, or use BrenikEditBegin.
 * BRENIK_SUCCESS, BRENIK_BAD_TABLE, BRENIK_IDENTIFIER_NOT_FOUND.
 *
 *     if (BrenikEditStart(1, uid, &number) == BRENIK_SUCCESS) {
 *         BrenikSetField(1, 0, "CITY", "Danbury");
 *         code = BrenikEditEnd(1, 0);
 *     }
 */
BRENIK_EXPORT BrenikCode BRENIK_CALL BrenikEditStart(int table, const char* identifier,
                                                     int* in_out);

/* Begins an edit of a record by its number; deleted records are not refused.
 *   in_out  receives the table number, whatever the outcome; its value on entry is not used
 * BRENIK_SUCCESS, BRENIK_BAD_TABLE, BRENIK_BAD_RECORD.
 *
 *     if (BrenikEditBegin(2, 17, &number) == BRENIK_SUCCESS) {
 *         BrenikSetField(2, 17, "DESC", "Moved to Friday");
 *         code = BrenikEditEnd(2, 17);
 *     }
 */
BRENIK_EXPORT BrenikCode BRENIK_CALL BrenikEditBegin(int table, int record, int* in_out);

/* Sets one field of the transaction, converting the text to the field's type.
 *   record  the record of the transaction; 0 for the current one, and while adding
 *   field   the field's name, in any case
 *   text    characters as they are; a number with a decimal point; a date as MM/DD/YY (in the
 *           1900s), MM/DD/YYYY or YYYYMMDD; "Y", "T" or "1" for true. Text that does not convert
 *           gives 0, the empty date or false, and is not reported. A number too wide for a field of
 *           digits (types N and F) is written as asterisks; one that a binary field (I, Y) cannot
 *           hold makes the End answer BRENIK_FAULT, every time.
 * BRENIK_SUCCESS, BRENIK_NOT_CURRENT, BRENIK_BAD_RECORD, BRENIK_UNKNOWN_FIELD.
 *
 *     code = BrenikSetField(1, record, "OPEN", "20240131");
 *     if (code == BRENIK_UNKNOWN_FIELD) {
 *         puts("this practice has no such field");
 *     }
 */
BRENIK_EXPORT BrenikCode BRENIK_CALL BrenikSetField(int table, int record, const char* field,
                                                    const char* text);

/* Writes the edited record under a lock, and notes in the change journal which fields changed. The
 * whole record is written, as it was read at the Start and with the fields that were set: what
 * another workstation changed in it since the Start is overwritten, and noted as changed here.
 *   record  the record of the transaction; 0 for the current one
 * BRENIK_SUCCESS, BRENIK_NOT_CURRENT, BRENIK_BAD_RECORD, BRENIK_LOCK_REFUSED,
 * BRENIK_EDIT_NOT_STAMPED. The transaction stays, so that a refused call can be repeated.
 *
 *     do {
 *         code = BrenikEditEnd(1, record);
 *     } while (code == BRENIK_LOCK_REFUSED && ask_to_retry());
 */
BRENIK_EXPORT BrenikCode BRENIK_CALL BrenikEditEnd(int table, int record);

/* Describes the practice's own contact record: 23 items, each followed by "|".
 *   firm  prime it with a string of the longest length L that you accept, and provide L + 2 bytes.
 *         On return its first n = min(result, L) bytes are the result, firm[n + 1] is NUL, and
 *         firm[n] is left as it was. An empty result means that the practice names no such record.
 * BRENIK_SUCCESS, whether or not there is such a record.
 *
 *     char firm[1002];
 *     memset(firm, ' ', 1000);
 *     firm[1000] = '\0';
 *     BrenikGetMyFirm(firm);
 *     last_bar = strrchr(firm, '|');
 */
BRENIK_EXPORT BrenikCode BRENIK_CALL BrenikGetMyFirm(char* firm);

/* Looks up the identifier of a contact (table 1) by its ID, or of a matter (table 3) by its case
 * number, whatever the key's letter case.
 *   identifier  at least 9 bytes, primed with 7 characters, for example blanks. With L as its
 *               length on entry, its first n = min(result, L) bytes are the result on return and
 *               identifier[n + 1] is NUL; identifier[n] is left as it was.
 * BRENIK_SUCCESS, BRENIK_BAD_TABLE, BRENIK_KEY_NOT_FOUND. On the latter two the result is the text
 * that the buffer held on entry if that was exactly 7 characters long, else 7 blanks; the rule
 * above applies to it too.
 *
 *     char uid[9] = "       ";
 *     if (BrenikGetU_ID(1, "smith", uid) == BRENIK_SUCCESS) {
 *         BrenikEditStart(1, uid, &number);
 *     }
 */
BRENIK_EXPORT BrenikCode BRENIK_CALL BrenikGetU_ID(int table, const char* key, char* identifier);

#ifdef __cplusplus
}
#endif

#endif
