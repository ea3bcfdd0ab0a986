/* BrenikDB: add and change records in a practice's shared database.
 *
 * Conventions for all functions:
 *
 *  1. Call BrenikInitialize first and BrenikShutDown last, with any number of record calls in
 *     between. The library serves one thread at a time and does no locking between threads.
 *
 *  2. Every function returns a BrenikCode, listed below, and reports failures in no other way.
 *     BRENIK_SUCCESS is 0. Every function can return BRENIK_FAULT (14) and BRENIK_NOT_REGISTERED
 *     (11); the lists of the functions omit these two.
 *
 *  3. A table is selected by its number:
 *         1 Names (contacts)   2 Events   3 Matters   4 notes   5 the system table
 *         7 code lists         9 cross-references    20 the change journal
 *     Table 5 is the library's own: hosts do not select it.
 *     Records are numbered from 1. Where a function says so, record 0 means the current record.
 *     BrenikGetU_ID, BrenikAddedRecord and BrenikDeletedRecord make another record current. So pass
 *     a record's own number to BrenikSetField and BrenikEditEnd. If that record is no longer the
 *     current one, they return BRENIK_BAD_RECORD, where record 0 would overwrite another record. A
 *     record that is being added has no number yet; it takes 0.
 *
 *  4. A change is a transaction on one table:
 *         add:   BrenikAddStart, BrenikSetField for each field, BrenikAddEnd
 *         edit:  BrenikEditStart or BrenikEditBegin, BrenikSetField for each field, BrenikEditEnd
 *     Nothing is written to the table before the End. If a Start, a look-up or a notification on
 *     another table comes in between, the End returns BRENIK_NOT_CURRENT. There is one transaction
 *     at a time; a second Start replaces the first. If a Start fails, there is no transaction: do
 *     not call its End.
 *
 *  5. Strings end with a NUL and are bytes in the practice's own code page. No pointer may be null:
 *     the library checks none, and a null pointer crashes the host.
 *
 *  6. A buffer that receives text must have the size that its function names. Two functions put the
 *     final NUL one byte past the end of the text; read their copy-back rules before calling.
 *     BRENIK_FAULT and BRENIK_NOT_REGISTERED leave every text buffer unchanged.
 *
 *  7. The library retries locked records and tables for about five seconds. During that time the
 *     call blocks, and it may show a notice. On a computer without a user, set BRENIK_UI=none in
 *     the environment.
 *
 *  8. On 32-bit Windows every function except BrenikShutDown removes its own arguments from the
 *     stack (BRENIK_CALL); BrenikShutDown uses the C convention.
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

/* The outcomes, and what a host does about each. */
enum {
    /* Done. */
    BRENIK_SUCCESS = 0,
    /* LAWSYS.DBF or LAW1.DBF is not in the data folder: check the path. */
    BRENIK_DATA_FILES_MISSING = 1,
    /* LAW1.CDX or LAW2.CDX is missing: rebuild the practice's indexes. */
    BRENIK_INDEX_FILES_MISSING = 2,
    /* The system table cannot be opened. One of its files is missing, not permitted, held by
     * another program or damaged; the fault file says which and why ("brenik faults" prints it). */
    BRENIK_SYSTEM_TABLE_NOT_OPENED = 3,
    /* Another table cannot be opened, for one of the same reasons. From BrenikAddEnd: the matter
     * was added, without its link. */
    BRENIK_TABLE_NOT_OPENED = 4,
    /* The table number is out of range or its table is not open: correct the call. */
    BRENIK_BAD_TABLE = 5,
    /* No such record, not the current one, not deleted, or no Start before: correct the call. */
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
    /* The table is not the one that the Start selected: start the transaction again. */
    BRENIK_NOT_CURRENT = 13,
    /* A fault such as a damaged file or a full disk stopped the call; the fault file has one line
     * with the reason. The session stays usable and holds no lock. Start the transaction again once
     * the cause is removed. The child of a fork gets this code from every call until
     * BrenikInitialize starts a session there. */
    BRENIK_FAULT = 14,
    /* The session is already shut down: nothing to do. */
    BRENIK_ALREADY_SHUT_DOWN = 15,
    /* No record has that identifier. From BrenikAddEnd: the matter was added, without its link. */
    BRENIK_IDENTIFIER_NOT_FOUND = 16,
    /* The record could not be appended, because another workstation kept a lock: try again; for a
     * matter, pass the contact's identifier again. If a matter's identifier is returned, the matter
     * was added and only its link is missing. */
    BRENIK_APPEND_FAILED = 17,
    /* The code already exists; its identifier is returned. */
    BRENIK_DUPLICATE_CODE = 18,
    /* No record has that key, or the key is blank. */
    BRENIK_KEY_NOT_FOUND = 19
};

/* Opens the practice in a folder and empties the trace log there.
 *   data_path  the folder; blank for the current one. A relative path is resolved once, here. On
 *              Windows the path is text in the process's ANSI code page.
 *   trace      not 0: writes every call to "Trace.Log" in the folder. The workstation's setting
 *              APITracing overrides this argument.
 *   reserved   not used
 * BRENIK_SUCCESS, BRENIK_DATA_FILES_MISSING, BRENIK_INDEX_FILES_MISSING,
 * BRENIK_SYSTEM_TABLE_NOT_OPENED, BRENIK_TABLE_NOT_OPENED. After a failure some tables may be open;
 * call only BrenikShutDown, or BrenikInitialize again. Tables of an earlier session in another
 * folder or with another engine are closed first, and its transaction is dropped.
 *
 *     BrenikCode code = BrenikInitialize("C:\\Practice", 1, 0);
 *     if (code != BRENIK_SUCCESS) {
 *         printf("cannot open the practice: %u\n", code);
 *         return 1;
 *     }
 */
BRENIK_EXPORT BrenikCode BRENIK_CALL BrenikInitialize(const char* data_path, int trace,
                                                      int reserved);

/* Closes every table and releases every lock, even if a step fails.
 * BRENIK_SUCCESS, BRENIK_ALREADY_SHUT_DOWN.
 *
 *     if (BrenikShutDown() == BRENIK_ALREADY_SHUT_DOWN) {
 *         puts("already closed");
 *     }
 */
BRENIK_EXPORT BrenikCode BrenikShutDown(void);

/* Notes in the change journal that the host itself has appended a record. Makes the table and that
 * record current.
 * BRENIK_SUCCESS, BRENIK_BAD_TABLE, BRENIK_BAD_RECORD (no such record),
 * BRENIK_ADDITION_NOT_STAMPED (the record has no identifier, or the journal is locked).
 *
 *     int record = host_append(names);
 *     BrenikCode code = BrenikAddedRecord(1, record);
 *     if (code == BRENIK_ADDITION_NOT_STAMPED) {
 *         remember_for_later(1, record);
 *     }
 */
BRENIK_EXPORT BrenikCode BRENIK_CALL BrenikAddedRecord(int table, int record);

/* Notes in the change journal that the host itself has marked a record deleted; notes each deletion
 * once. Makes the table and that record current; if the table is not open, makes Names current.
 * BRENIK_SUCCESS, BRENIK_BAD_TABLE, BRENIK_BAD_RECORD (no such record, or it is not deleted),
 * BRENIK_DELETION_NOT_STAMPED.
 *
 *     host_delete(names, record);
 *     if (BrenikDeletedRecord(1, record) != BRENIK_SUCCESS) {
 *         remember_for_later(1, record);
 *     }
 */
BRENIK_EXPORT BrenikCode BRENIK_CALL BrenikDeletedRecord(int table, int record);

/* Starts a new record with empty fields; a new contact is active. Locks and appends nothing.
 *   in_out  receives the table number, whatever the outcome; its value on entry is ignored
 * BRENIK_SUCCESS, BRENIK_BAD_TABLE.
 *
 *     int number = 0;
 *     char uid[8] = "";
 *     BrenikAddStart(1, &number);
 *     BrenikSetField(1, 0, "LAST", "Ives");
 *     BrenikAddEnd(1, uid);
 */
BRENIK_EXPORT BrenikCode BRENIK_CALL BrenikAddStart(int table, int* in_out);

/* Appends the new record and returns its identifier.
 *   identifier  at least 8 bytes. On entry, for a matter: the identifier of the contact to link it
 *               to; ignored unless exactly 7 characters long. On return: always 7 characters and a
 *               NUL at identifier[7]. They are the identifier of the table's current record: blank
 *               if nothing could be appended, and that of the existing code after
 *               BRENIK_DUPLICATE_CODE. After BRENIK_NOT_CURRENT nothing was added, and they are
 *               the text on entry, or blanks: check the code first.
 * BRENIK_SUCCESS, BRENIK_NOT_CURRENT, BRENIK_APPEND_FAILED, BRENIK_DUPLICATE_CODE (table 7). For a
 * matter also BRENIK_IDENTIFIER_NOT_FOUND and BRENIK_TABLE_NOT_OPENED: it was added but not linked.
 * The same holds for BRENIK_APPEND_FAILED with an identifier: do not add that matter again.
 *
 *     char uid[8];
 *     strcpy(uid, contact_uid);
 *     BrenikAddStart(3, &number);
 *     BrenikSetField(3, 0, "CASENUM", "2024-17");
 *     BrenikAddEnd(3, uid);
 */
BRENIK_EXPORT BrenikCode BRENIK_CALL BrenikAddEnd(int table, char* identifier);

/* Starts an edit of the record with an identifier, or of the first one whose identifier begins with
 * the given text.
 *   in_out  receives the table number, whatever the outcome; its value on entry is ignored
 * The record's number is not returned, so pass record 0 to BrenikSetField and BrenikEditEnd, and
 * make no other call in between. On table 7 the order of the identifiers stays active, in which
 * BrenikAddEnd finds no duplicate codes: add codes first, or use BrenikEditBegin.
 * BRENIK_SUCCESS, BRENIK_BAD_TABLE, BRENIK_IDENTIFIER_NOT_FOUND.
 *
 *     if (BrenikEditStart(1, uid, &number) == BRENIK_SUCCESS) {
 *         BrenikSetField(1, 0, "CITY", "Danbury");
 *         code = BrenikEditEnd(1, 0);
 *     }
 */
BRENIK_EXPORT BrenikCode BRENIK_CALL BrenikEditStart(int table, const char* identifier,
                                                     int* in_out);

/* Starts an edit of a record by its number. The record may be deleted.
 *   in_out  receives the table number, whatever the outcome; its value on entry is ignored
 * BRENIK_SUCCESS, BRENIK_BAD_TABLE, BRENIK_BAD_RECORD.
 *
 *     if (BrenikEditBegin(2, 17, &number) == BRENIK_SUCCESS) {
 *         BrenikSetField(2, 17, "DETAIL", "Moved to Friday");
 *         code = BrenikEditEnd(2, 17);
 *     }
 */
BRENIK_EXPORT BrenikCode BRENIK_CALL BrenikEditBegin(int table, int record, int* in_out);

/* Sets one field of the transaction and converts the text to the field's type.
 *   record  the record of the transaction; 0 for the current one, and for a new record
 *   field   the field's name, in any case
 *   text    characters as they are; a number with a decimal point; a date as MM/DD/YY (in the
 *           1900s), MM/DD/YYYY or YYYYMMDD; "Y", "T" or "1" for true. Text that does not convert
 *           becomes 0, the empty date or false, without an error. A number too wide for a field of
 *           digits (types N and F) is written as asterisks. If a number is too large for a binary
 *           field (I, Y), the End returns BRENIK_FAULT every time.
 * BRENIK_SUCCESS, BRENIK_NOT_CURRENT, BRENIK_BAD_RECORD, BRENIK_UNKNOWN_FIELD.
 *
 *     code = BrenikSetField(1, record, "OPEN", "20240131");
 *     if (code == BRENIK_UNKNOWN_FIELD) {
 *         puts("this practice has no such field");
 *     }
 */
BRENIK_EXPORT BrenikCode BRENIK_CALL BrenikSetField(int table, int record, const char* field,
                                                    const char* text);

/* Writes the edited record under a lock, and notes in the change journal which fields changed.
 * Writes the whole record, as it was at the Start and with the fields that were set. So it
 * overwrites what another workstation has changed in the record since the Start, and notes those
 * fields as changed here.
 *   record  the record of the transaction; 0 for the current one
 * BRENIK_SUCCESS, BRENIK_NOT_CURRENT, BRENIK_BAD_RECORD, BRENIK_LOCK_REFUSED,
 * BRENIK_EDIT_NOT_STAMPED. Keeps the transaction, so that the host can repeat a refused call.
 *
 *     do {
 *         code = BrenikEditEnd(1, record);
 *     } while (code == BRENIK_LOCK_REFUSED && ask_to_retry());
 */
BRENIK_EXPORT BrenikCode BRENIK_CALL BrenikEditEnd(int table, int record);

/* Describes the practice's own contact record: 23 items, each followed by "|".
 *   firm  prime it with a string of the maximum length L that you accept, and provide L + 2 bytes.
 *         On return its first n = min(result, L) bytes are the result, firm[n + 1] is NUL, and
 *         firm[n] is unchanged. An empty result means that the practice names no such record.
 * BRENIK_SUCCESS, even without such a record.
 *
 *     char firm[1002];
 *     memset(firm, ' ', 1000);
 *     firm[1000] = '\0';
 *     BrenikGetMyFirm(firm);
 *     last_bar = strrchr(firm, '|');
 */
BRENIK_EXPORT BrenikCode BRENIK_CALL BrenikGetMyFirm(char* firm);

/* Looks up the identifier of a contact (table 1) by its ID, or of a matter (table 3) by its case
 * number. The key may be in any letter case.
 *   identifier  at least 9 bytes, primed with 7 characters, for example blanks. With L as its
 *               length on entry, its first n = min(result, L) bytes are the result on return and
 *               identifier[n + 1] is NUL; identifier[n] is unchanged.
 * BRENIK_SUCCESS, BRENIK_BAD_TABLE, BRENIK_KEY_NOT_FOUND. After the latter two the result is the
 * text on entry if that was exactly 7 characters long, else 7 blanks; the rule above applies to it
 * too.
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
