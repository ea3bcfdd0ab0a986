// The rows of the table of assumptions: the numbers, then the behaviours.

#include "engine/advantage/assumptions.h"

#include <algorithm>

namespace brenik::advantage {
namespace {

#define BRENIK_CLIENT_ROW(CONSTANT, TYPE, VALUE, NAME, PROBE, DOCUMENTED) \
    {NAME, NAME " is " #VALUE, PROBE, DOCUMENTED},

constexpr bool kInferred = false;
constexpr bool kDocumented = true;

constexpr Assumption kRows[] = {
    BRENIK_CLIENT_NUMBERS(BRENIK_CLIENT_ROW)
    // -- The call itself.
    {"calling convention", "functions take their arguments as Windows' own do, under plain names",
     "convention", kInferred},
    {"width of a handle", "a handle is as wide as an address", "handle-width", kInferred},
    {"array of handles", "an array of orders counts entries, each as wide as an address",
     "order-array", kInferred},
    {"short buffer",
     "a text that does not fit is cut, and its length includes the terminator; every buffer is "
     "long enough for one",
     "short-buffer", kDocumented},
    // -- Servers and settings.
    {"server query",
     "the query for a server answers 0, 1 or 2; where it answers only yes or no, connecting "
     "decides",
     "server-loaded", kInferred},
    {"connection of a chosen type",
     "an explicit connection uses the server type that is given with it, whatever the process's "
     "setting; both are set",
     "connection-type", kInferred},
    {"connection of our own",
     "each explicit connection has a handle of its own, so that ending ours leaves the host's",
     "own-connection", kInferred},
    {"default of server types",
     "remote and internet servers; put back so, because the setting cannot be read", "server-types",
     kDocumented},
    {"default of deleted records",
     "deleted records are visible until a program says otherwise; put back so if the setting "
     "cannot be read",
     "deleted-setting", kDocumented},
    {"sense of AdsGetDeleted",
     "its answer may mean shown or hidden; setting and reading again tells which",
     "deleted-polarity", kInferred},
    {"default of comparison",
     "strings are compared by their beginning until a program says otherwise", "exact-setting",
     kInferred},
    {"date format", "letters C, Y, M and D spell it, and MM/DD/CCYY is the default", "date-format",
     kInferred},
    // -- Opening.
    {"checked rights",
     "with it a server gives nobody more rights to a file than the system does; the library's own "
     "files in the folder need those rights as well",
     "open-options", kInferred},
    {"longest alias", "ten characters; no longer one is used", "alias-length", kDocumented},
    {"duplicate alias", "it is refused; the next generated one is tried", "alias-duplicate",
     kInferred},
    {"position after an open", "the first record; the engine goes to the top by itself",
     "position-after-open", kInferred},
    {"held file",
     "a table that another user holds exclusively is refused, although its file exists",
     "refused-open-status", kInferred},
    {"structural index", "it is opened with its table, and its orders come first",
     "structural-index", kDocumented},
    {"index that is already open",
     "opening it again fills the array with its orders all the same; the engine does not use them",
     "index-already-open", kInferred},
    {"type of a table",
     "an open under another type is refused; the engine takes it from the header", "table-type",
     kInferred},
    {"last error", "stays until the next failure; the engine asks right after a failure",
     "last-error", kInferred},
    // -- Position.
    {"skip before the first record",
     "leaves record number 0 and sets the beginning flag; the engine goes to the first record and "
     "keeps the flag itself",
     "skip-before-first", kDocumented},
    {"skip past the last record", "leaves the record number past the last and sets the end flag",
     "skip-past-last", kDocumented},
    {"skip by 0", "writes a pending change and does not move", "skip-zero", kInferred},
    {"go to a record that does not exist", "is refused or leaves the end; the engine never does it",
     "go-outside", kInferred},
    {"go to a deleted record", "reaches it whatever the setting of deleted records",
     "go-to-deleted", kDocumented},
    {"empty table", "both flags are set, and reading a field is refused", "empty-table", kInferred},
    {"top of a table", "sets no flag unless nothing is visible", "top-flags", kInferred},
    // -- Fresh records.
    {"read-ahead", "a cache of one record turns it off", "read-ahead", kDocumented},
    {"go to the current record",
     "may be answered from memory; the engine leaves the record and comes back",
     "go-to-same-record", kInferred},
    {"record that was left", "is read anew when the client returns to it", "leave-and-return",
     kInferred},
    {"refresh of an unlocked record", "reads it anew", "refresh", kDocumented},
    {"record after a lock",
     "a record that is read again after its lock was acquired is the one in the table",
     "lock-then-read", kInferred},
    {"refresh of a locked record", "does nothing; the engine does not rely on it", "refresh-locked",
     kDocumented},
    // -- Locks.
    {"several record locks", "a lock leaves those held before", "two-locks", kDocumented},
    {"refused table lock",
     "record locks are gone afterwards; the engine acquires them again and forgets those lost",
     "table-lock-drops", kDocumented},
    {"unlock", "writes the record's pending change; the engine writes it before", "unlock-writes",
     kDocumented},
    {"lock by a write",
     "writing to a record without a lock acquires one; the engine refuses such a write itself",
     "implicit-lock", kDocumented},
    {"time of a refusal", "a refused record lock is refused at once", "refused-lock-time",
     kInferred},
    // -- Appending.
    {"lock of an appended record",
     "it may end when the record is written; the engine locks the record explicitly and looks "
     "again",
     "append-lock", kInferred},
    {"visibility of an appended record", "others may see it, blank, before it is written",
     "append-visible", kInferred},
    {"own lock of an append", "may end when the record is written; the engine does not rely on it",
     "own-append-lock", kInferred},
    {"refused append",
     "may leave a blank record; the engine marks it deleted and uses it for the next try",
     "append-refused", kInferred},
    {"cancelled change", "drops what was not sent and keeps an explicit lock", "cancel-change",
     kDocumented},
    {"cancelled append", "leaves a blank record that is marked deleted, or none", "cancel-append",
     kDocumented},
    // -- Fields and bytes.
    {"text of a field", "numbers are aligned to the right in the field's width", "field-text",
     kInferred},
    {"number as text", "is stored as its text is given; the engine compares and repairs",
     "number-text", kInferred},
    {"date as text", "is stored as its text says in the date format", "date-written", kDocumented},
    {"text that is too long", "is refused; the engine cuts it before", "long-text", kDocumented},
    {"emptied field", "is blank; the engine compares and repairs", "empty-values", kInferred},
    {"text of a logical", "one letter, T or F", "logical-text", kInferred},
    {"empty date", "its text is blank, and AdsSetEmpty makes one", "empty-date", kInferred},
    {"bytes of a memo", "all 256 bytes pass through AdsSetField and AdsGetField in ANSI tables",
     "memo-bytes", kInferred},
    {"binary functions on a memo", "may be refused; they are the second try for a memo's bytes",
     "memo-binary", kInferred},
    {"bytes of a character field", "all 256 bytes pass in ANSI tables", "character-bytes",
     kInferred},
    {"bytes of an OEM table",
     "texts are converted in fields and text keys; records and raw keys are not", "oem-bytes",
     kInferred},
    {"memo of an OEM table", "is converted; the engine then takes the binary functions",
     "memo-bytes-oem", kInferred},
    {"record image of an OEM table", "AdsGetRecord and AdsSetRecord convert nothing", "oem-record",
     kInferred},
    {"record image", "AdsGetRecord gives the record's bytes as the file holds them", "raw-record",
     kInferred},
    {"record image written", "AdsSetRecord writes all bytes but the first, memo pointers included",
     "set-record", kDocumented},
    {"flush", "AdsFlushFileBuffers has the local server's files written to the disk", "flush",
     kDocumented},
    // -- Orders.
    {"prefix of a key", "a seek for a short text compares only its length", "seek-prefix",
     kInferred},
    {"empty key", "a seek for no text has a meaning of its own; the engine never does it",
     "seek-empty", kInferred},
    {"seek of the last key", "finds the last of equal keys, or leaves the end", "seek-last",
     kInferred},
    {"raw key", "a raw key shorter than the key of the order is a prefix", "raw-key", kInferred},
    {"date as a key", "a date may be sought as its day number", "date-key", kDocumented},
    {"number as a key", "a number is sought as 8 bytes of floating point", "number-key",
     kDocumented},
    {"descending order", "a soft seek that finds nothing leaves the next smaller key",
     "descending-seek", kInferred},
    {"raw key in an OEM table", "its bytes are not converted", "oem-raw-key", kInferred},
    {"number of a key", "counts from 1, and is 0 at the end and outside the order", "key-number",
     kDocumented},
};

static_assert(std::ranges::all_of(kRows, [](const Assumption& row) { return *row.probe != '\0'; }));

}  // namespace

std::span<const Assumption> assumptions() { return kRows; }

}  // namespace brenik::advantage
