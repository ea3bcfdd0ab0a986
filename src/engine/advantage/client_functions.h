// The functions of the client library that the engine calls, one row each: name and arguments.
//
// Every function returns a status, 0 for success. Handles are as wide as a pointer. Names, paths
// and expressions end in NUL; data and keys have a length. Lengths of names and expressions have 16
// bits, those of field data 32: in the size of the buffer, out the number of bytes.
//
// A function of the second list may be missing, in an older library for example. What replaces it
// is written above it.

#pragma once

#include <cstdint>

namespace brenik::advantage {

using Handle = std::uintptr_t;
using Status = std::uint32_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using I32 = std::int32_t;

// clang-format off
#define BRENIK_CLIENT_REQUIRED(FUNCTION)                                                          \
    FUNCTION(AdsGetLastError, U32* code, char* text, U16* size)                                   \
    FUNCTION(AdsSetServerType, U16 types)                                                         \
    FUNCTION(AdsConnect60, const char* path, U16 types, const char* user, const char* password,   \
             U32 options, Handle* connection)                                                     \
    FUNCTION(AdsDisconnect, Handle connection)                                                    \
    FUNCTION(AdsShowDeleted, U16 show)                                                            \
    FUNCTION(AdsSetExact, U16 exact)                                                              \
    FUNCTION(AdsSetDateFormat, const char* format)                                                \
    FUNCTION(AdsOpenTable, Handle connection, const char* path, const char* alias, U16 type,      \
             U16 characters, U16 locking, U16 rights, U32 options, Handle* table)                 \
    FUNCTION(AdsCloseTable, Handle table)                                                         \
    FUNCTION(AdsCacheRecords, Handle table, U16 records)                                          \
    FUNCTION(AdsGetNumFields, Handle table, U16* count)                                           \
    FUNCTION(AdsGetFieldName, Handle table, U16 field, char* name, U16* size)                     \
    FUNCTION(AdsGetFieldType, Handle table, const char* field, U16* type)                         \
    FUNCTION(AdsGetFieldLength, Handle table, const char* field, U32* width)                      \
    FUNCTION(AdsGetFieldDecimals, Handle table, const char* field, U16* decimals)                 \
    FUNCTION(AdsGotoTop, Handle object)                                                           \
    FUNCTION(AdsGotoBottom, Handle object)                                                        \
    FUNCTION(AdsGotoRecord, Handle object, U32 record)                                            \
    FUNCTION(AdsSkip, Handle object, I32 count)                                                   \
    FUNCTION(AdsAtEOF, Handle table, U16* at)                                                     \
    FUNCTION(AdsAtBOF, Handle table, U16* at)                                                     \
    FUNCTION(AdsGetRecordNum, Handle table, U16 filters, U32* record)                             \
    FUNCTION(AdsGetRecordCount, Handle object, U16 filters, U32* count)                           \
    FUNCTION(AdsGetRecord, Handle table, void* record, U32* size)                                 \
    FUNCTION(AdsAppendRecord, Handle table)                                                       \
    FUNCTION(AdsWriteRecord, Handle table)                                                        \
    FUNCTION(AdsCancelUpdate, Handle table)                                                       \
    FUNCTION(AdsRefreshRecord, Handle table)                                                      \
    FUNCTION(AdsDeleteRecord, Handle table)                                                       \
    FUNCTION(AdsRecallRecord, Handle table)                                                       \
    FUNCTION(AdsGetField, Handle table, const char* field, void* data, U32* size, U16 trim)       \
    FUNCTION(AdsGetMemoLength, Handle table, const char* field, U32* length)                      \
    FUNCTION(AdsSetField, Handle table, const char* field, const void* data, U32 length)          \
    FUNCTION(AdsSetEmpty, Handle table, const char* field)                                        \
    FUNCTION(AdsLockRecord, Handle table, U32 record)                                             \
    FUNCTION(AdsUnlockRecord, Handle table, U32 record)                                           \
    FUNCTION(AdsLockTable, Handle table)                                                          \
    FUNCTION(AdsUnlockTable, Handle table)                                                        \
    FUNCTION(AdsIsRecordLocked, Handle table, U32 record, U16* locked)                            \
    FUNCTION(AdsOpenIndex, Handle table, const char* path, Handle* orders, U16* count)            \
    FUNCTION(AdsCloseAllIndexes, Handle table)                                                    \
    FUNCTION(AdsGetNumIndexes, Handle table, U16* count)                                          \
    FUNCTION(AdsGetIndexHandleByOrder, Handle table, U16 number, Handle* order)                   \
    FUNCTION(AdsGetIndexName, Handle order, char* name, U16* size)                                \
    FUNCTION(AdsGetIndexExpr, Handle order, char* expression, U16* size)                          \
    FUNCTION(AdsGetIndexCondition, Handle order, char* expression, U16* size)                     \
    FUNCTION(AdsIsIndexUnique, Handle order, U16* is)                                             \
    FUNCTION(AdsIsIndexDescending, Handle order, U16* is)                                         \
    FUNCTION(AdsGetKeyLength, Handle order, U16* length)                                          \
    FUNCTION(AdsGetKeyCount, Handle order, U16 filters, U32* count)                               \
    FUNCTION(AdsGetKeyNum, Handle order, U16 filters, U32* number)                                \
    FUNCTION(AdsSeek, Handle order, const void* key, U16 length, U16 type, U16 mode, U16* found)

#define BRENIK_CLIENT_OPTIONAL(FUNCTION)                                                          \
    /* Trying to connect. */                                                                      \
    FUNCTION(AdsIsServerLoaded, const char* path, U16* loaded)                                    \
    /* AdsConnect60, which is tried first anyway. */                                              \
    FUNCTION(AdsConnect26, const char* path, U16 type, Handle* connection)                        \
    /* The documented defaults of the settings. */                                                \
    FUNCTION(AdsGetDeleted, U16* is)                                                              \
    FUNCTION(AdsGetExact, U16* is)                                                                \
    FUNCTION(AdsGetDateFormat, char* format, U16* size)                                           \
    /* Nothing: durability is then the server's. */                                               \
    FUNCTION(AdsFlushFileBuffers, Handle table)                                                   \
    /* AdsSetField and AdsGetField. */                                                            \
    FUNCTION(AdsSetRecord, Handle table, const void* record, U32 size)                            \
    FUNCTION(AdsGetBinaryLength, Handle table, const char* field, U32* length)                    \
    FUNCTION(AdsGetBinary, Handle table, const char* field, U32 offset, void* data, U32* size)    \
    FUNCTION(AdsSetBinary, Handle table, const char* field, U16 type, U32 total, U32 offset,      \
             const void* data, U32 size)                                                          \
    /* Nothing: only a probe calls it. */                                                         \
    FUNCTION(AdsGetIndexFilename, Handle order, U16 option, char* name, U16* size)                \
    /* Every order is taken for one that is not custom. */                                        \
    FUNCTION(AdsIsIndexCustom, Handle order, U16* is)                                             \
    /* Steps. */                                                                                  \
    FUNCTION(AdsSeekLast, Handle order, const void* key, U16 length, U16 type, U16* found)        \
    /* The engine's own filter. */                                                                \
    FUNCTION(AdsSetAOF, Handle table, const char* filter, U16 options)                            \
    FUNCTION(AdsClearAOF, Handle table)                                                           \
    /* Nothing: only probes call them. */                                                         \
    FUNCTION(AdsGetKeyType, Handle order, U16* type)                                              \
    FUNCTION(AdsExtractKey, Handle order, void* key, U16* size)                                   \
    /* Filters count as not optimised. */                                                         \
    FUNCTION(AdsGetAOFOptLevel, Handle table, U16* level, char* rest, U16* size)
// clang-format on

}  // namespace brenik::advantage
