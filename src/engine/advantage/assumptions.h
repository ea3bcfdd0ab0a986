// What the engine takes for granted about the client, in one table.
//
// The client's help names its constants but gives few of their values, and leaves some behaviour
// open. Each such fact is one row, with the name of the probe that confirms or refutes it on a
// machine that has the library: `brenik engine DIR --probe`. The rows of this file are numbers;
// each makes the constant, too. Those of assumptions.cpp are behaviours, with what the engine does
// so that it works either way.

#pragma once

#include <cstddef>
#include <span>

#include "engine/advantage/client_functions.h"

namespace brenik::advantage {

struct Assumption {
    const char* name;
    const char* what;
    const char* probe;  // several rows may share one
    bool documented;    // by the client's help; otherwise inferred
};

// Every row of both files.
std::span<const Assumption> assumptions();

// NUMBER(constant of ours, type, value, the client's name, probe, whether its value is documented)
// clang-format off
#define BRENIK_CLIENT_NUMBERS(NUMBER)                                                             \
    /* Server types, and a mask of them */                                                        \
    NUMBER(kLocalServer, U16, 1, "ADS_LOCAL_SERVER", "server-types", false)                       \
    NUMBER(kRemoteServer, U16, 2, "ADS_REMOTE_SERVER", "server-types", false)                     \
    NUMBER(kInternetServer, U16, 4, "ADS_AIS_SERVER", "server-types", false)                      \
    NUMBER(kNoOptions, U32, 0, "ADS_DEFAULT", "server-types", true)                               \
    /* Opening */                                                                                 \
    NUMBER(kExclusive, U32, 1, "ADS_EXCLUSIVE", "exclusive-open", false)                          \
    NUMBER(kShared, U32, 4, "ADS_SHARED", "open-options", false)                                  \
    NUMBER(kCdxTable, U16, 2, "ADS_CDX", "structural-index", false)                               \
    NUMBER(kVfpTable, U16, 4, "ADS_VFP", "structural-index", false)                               \
    NUMBER(kAnsi, U16, 1, "ADS_ANSI", "character-types", false)                                   \
    NUMBER(kOem, U16, 2, "ADS_OEM", "character-types", false)                                     \
    NUMBER(kCompatibleLocking, U16, 0, "ADS_COMPATIBLE_LOCKING", "lock-types", false)             \
    NUMBER(kProprietaryLocking, U16, 1, "ADS_PROPRIETARY_LOCKING", "lock-types", false)           \
    NUMBER(kCheckRights, U16, 1, "ADS_CHECKRIGHTS", "open-options", false)                        \
    /* Fields, and the kinds of keys that share their codes */                                    \
    NUMBER(kLogicalField, U16, 1, "ADS_LOGICAL", "field-types", true)                             \
    NUMBER(kNumericField, U16, 2, "ADS_NUMERIC", "field-types", true)                             \
    NUMBER(kDateField, U16, 3, "ADS_DATE", "field-types", true)                                   \
    NUMBER(kStringField, U16, 4, "ADS_STRING", "field-types", true)                               \
    NUMBER(kMemoField, U16, 5, "ADS_MEMO", "field-types", true)                                   \
    NUMBER(kBinaryField, U16, 6, "ADS_BINARY", "field-types", true)                               \
    NUMBER(kDoubleField, U16, 10, "ADS_DOUBLE", "field-types", true)                              \
    NUMBER(kIntegerField, U16, 11, "ADS_INTEGER", "field-types", true)                            \
    NUMBER(kTimestampField, U16, 14, "ADS_TIMESTAMP", "field-types", true)                        \
    NUMBER(kAutoincrementField, U16, 15, "ADS_AUTOINC", "field-types", true)                      \
    NUMBER(kCurrencyField, U16, 17, "ADS_CURDOUBLE", "field-types", true)                         \
    NUMBER(kMoneyField, U16, 18, "ADS_MONEY", "field-types", true)                                \
    NUMBER(kNotTrimmed, U16, 0, "ADS_NONE", "trim-options", false)                                \
    /* Counting, and how a file's name is told */                                                 \
    NUMBER(kIgnoreFilters, U16, 2, "ADS_IGNOREFILTERS", "filter-options", false)                  \
    NUMBER(kRefreshCount, U16, 4, "ADS_REFRESHCOUNT", "record-count", false)                      \
    NUMBER(kFullPath, U16, 3, "the option for a full path", "index-file-name", false)             \
    /* Seeking */                                                                                 \
    NUMBER(kRawKey, U16, 1, "ADS_RAWKEY", "key-types", false)                                     \
    NUMBER(kStringKey, U16, 2, "ADS_STRINGKEY", "key-types", false)                               \
    NUMBER(kDoubleKey, U16, 4, "ADS_DOUBLEKEY", "key-types", false)                               \
    NUMBER(kSoftSeek, U16, 1, "ADS_SOFTSEEK", "seek-modes", false)                                \
    NUMBER(kHardSeek, U16, 2, "ADS_HARDSEEK", "seek-modes", false)                                \
    /* Filters that the server evaluates */                                                       \
    NUMBER(kDynamicFilter, U16, 2, "ADS_RESOLVE_DYNAMIC", "optimised-filter", false)              \
    NUMBER(kFullyOptimised, U16, 1, "ADS_OPTIMIZED_FULL", "optimisation-levels", false)           \
    NUMBER(kPartlyOptimised, U16, 2, "ADS_OPTIMIZED_PART", "optimisation-levels", false)          \
    NUMBER(kNotOptimised, U16, 3, "ADS_OPTIMIZED_NONE", "optimisation-levels", false)             \
    /* Status numbers. Where the state can be asked instead, no number is listed. */              \
    NUMBER(kFileNotFound, Status, 5004, "AE_FILE_NOT_FOUND", "missing-file-status", false)        \
    NUMBER(kNoServer, Status, 5033, "AE_NO_DRIVE_CONNECTION", "server-types", false)              \
    NUMBER(kLockFailed, Status, 5035, "AE_LOCK_FAILED", "lock-status", false)                     \
    NUMBER(kDuplicateAlias, Status, 5051, "AE_DUPLICATE_ALIAS", "alias-duplicate", false)         \
    NUMBER(kNoCurrentRecord, Status, 5068, "AE_NO_CURRENT_RECORD", "no-current-record", false)    \
    NUMBER(kNotOpened, Status, 7008, "the status of a file that others hold",                     \
           "refused-open-status", false)                                                          \
    NUMBER(kRefusedBySystem, Status, 7040, "the status of an open that the system refuses",       \
           "refused-open-status", false)                                                          \
    NUMBER(kNoSuchFile, Status, 7041, "the status of a missing file or folder",                   \
           "missing-file-status", true)                                                           \
    NUMBER(kDamagedTable, Status, 7016, "the first status of a damaged table",                    \
           "refused-open-status", true)                                                           \
    NUMBER(kDamagedTable2, Status, 7123, "the second status of a damaged table",                  \
           "refused-open-status", true)                                                           \
    NUMBER(kDamagedTable3, Status, 7124, "the third status of a damaged table",                   \
           "refused-open-status", true)
// clang-format on

#define BRENIK_CLIENT_CONSTANT(CONSTANT, TYPE, VALUE, NAME, PROBE, DOCUMENTED) \
    inline constexpr TYPE CONSTANT = VALUE;
BRENIK_CLIENT_NUMBERS(BRENIK_CLIENT_CONSTANT)
#undef BRENIK_CLIENT_CONSTANT

inline constexpr bool tells_damage(Status status) {
    return status == kDamagedTable || status == kDamagedTable2 || status == kDamagedTable3;
}

// The servers that the client may connect to until a program says otherwise.
inline constexpr U16 kUsualServers = kRemoteServer | kInternetServer;
// How dates are written for the client and read from it.
inline constexpr char kDateFormat[] = "MM/DD/CCYY";
// The longest alias that the client takes.
inline constexpr std::size_t kAliasLength = 10;

}  // namespace brenik::advantage
