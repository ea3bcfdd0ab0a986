// The change journal: which records were added, edited and deleted, and when and at which
// workstation each field of an edited record last changed.
//
// The journal is the shared table under the alias TRANS. An entry is found by table code (the
// tracked table's work area in two digits), record identifier and kind. A record has at most one
// entry of kind "E" and one of kind "D"; every addition appends an entry of kind "A". Entries
// marked deleted do not count.
//
// While the system table's TRACKSYNC is false, the writers write no entry and report success. If
// the journal's index or memo file stays locked by others, the writers append no entry. That is no
// fault, and the change that the entry would have noted stays done.

#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "session/session.h"

namespace brenik {

// Options of RSADD. What is absent comes from the current work area and the current time.
struct Addition {
    std::optional<int> area = {};
    bool commit = true;
    std::optional<std::string> stamp = {};
    std::optional<std::string> identifier = {};
    std::optional<std::string> table_code = {};
};

// How long a writer retries to append an entry while others hold the journal locked: not at all, or
// for about five seconds, without a notice.
enum class Patience { kNone, kFull };

// Notes an added record. False if the identifier is empty or the entry cannot be appended.
[[nodiscard]] bool RSADD(Session& session, const Addition& addition = {},
                         Patience patience = Patience::kFull);

// Checks that an addition could be noted. Throws EngineFault(kEmptyWorkArea) if the journal is not
// open, EngineFault(kUnknownName) if it or the system table lacks a field, and what
// Table::require_place throws if the journal can take no entry.
void require_journal(Session& session);

// The greatest identifier, up to `limit`, for which the journal has an entry of that table. Empty
// if there is none, if the journal's controlling order does not have these keys, or if its index is
// busy.
std::optional<std::string> last_journalled(Session& session, const std::string& table_code,
                                           const std::string& limit);

struct Deletion {
    std::optional<int> area = {};
    std::optional<std::string> stamp = {};
    std::optional<std::string> identifier = {};
    bool remove = false;  // deletes an existing entry instead of keeping it
    std::optional<std::string> workstation = {};
    std::optional<int> code_area = {};
    std::optional<std::string> table_code = {};
    bool quiet = false;  // shows no message if the entry to delete is locked
};

// Notes a deleted record; does nothing if it is already noted. False if the identifier is empty,
// the entry cannot be appended, or another session holds the lock of the entry to delete.
[[nodiscard]] bool RSDEL(Session& session, const Deletion& deletion = {});

struct FieldChanges {
    // Either one field, counted from 1, and its value, or a value per field in `values`.
    std::optional<std::size_t> field_number = {};
    Value value = {};
    ArrayReference values = {};
    std::optional<int> area = {};
    std::optional<std::string> stamp = {};
    std::optional<std::string> identifier = {};
    std::optional<std::string> workstation = {};
    bool force = false;  // notes the one field even if its value does not change
    std::optional<int> code_area = {};
};

// Writes field values into the current record of the area and stamps those that differ. REQUIRES:
// the caller has locked the record. False if the identifier is empty (the values are still written)
// or the entry stays locked by another session (nothing is written); the user sees a message for
// either.
[[nodiscard]] bool RSSET(Session& session, const FieldChanges& changes);

// Locks the whole journal for a batch of changes. Until RSUNLOCK the writers neither lock nor
// commit nor release it. Tries once; true on success.
[[nodiscard]] bool RSLOCK(Session& session);
// Commits and releases the journal. Always returns false.
bool RSUNLOCK(Session& session);

// The stamp of the last change of one field, counted from 1, or the empty stamp. `changer` receives
// the workstation's code if there is such an entry.
std::string RSDTOF(Session& session, const std::string& table_code, const std::string& identifier,
                   std::size_t field_number, std::string* changer = nullptr);

}  // namespace brenik
