// The change journal: which records were added, edited and deleted, and when each field of an
// edited record last changed and at which workstation.
//
// The journal is the shared table under the alias TRANS. An entry is found by table code (the
// tracked table's work area in two digits), record identifier and kind. A record has at most one
// entry of kind "E" and one of kind "D"; an entry "A" is appended for every addition. Entries
// marked deleted count as absent.
//
// Nothing is written while the system table's TRACKSYNC is false; the writers then report success.
// A journal whose index or memo file stays locked by others counts as one that no entry can be
// appended to: that is no fault, and what the entry was to tell of has been done all the same.

#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "session/session.h"

namespace brenik {

// What a caller of RSADD may give; what is absent is taken from the current work area and moment.
struct Addition {
    std::optional<int> area = {};
    bool commit = true;
    std::optional<std::string> stamp = {};
    std::optional<std::string> identifier = {};
    std::optional<std::string> table_code = {};
};

// How long a writer goes on trying to append an entry while others keep the journal locked: not at
// all, or about five seconds, without a notice.
enum class Patience { kNone, kFull };

// Notes an added record. False when the identifier is empty or the entry cannot be appended.
[[nodiscard]] bool RSADD(Session& session, const Addition& addition = {},
                         Patience patience = Patience::kFull);

// EngineFault kEmptyWorkArea or kUnknownName when an addition could not be noted, because the
// journal is not open, or it or the system table lacks a field; what Table::require_place says
// where the journal can take no entry.
void require_journal(Session& session);

// The greatest identifier, not above `limit`, that the journal has an entry of that table for.
// Nothing when there is none, or the journal's order does not tell, for now or at all.
std::optional<std::string> last_journalled(Session& session, const std::string& table_code,
                                           const std::string& limit);

struct Deletion {
    std::optional<int> area = {};
    std::optional<std::string> stamp = {};
    std::optional<std::string> identifier = {};
    bool remove = false;  // takes an existing entry away instead of keeping it
    std::optional<std::string> workstation = {};
    std::optional<int> code_area = {};
    std::optional<std::string> table_code = {};
    bool quiet = false;  // shows no message when the entry to remove is locked
};

// Notes a deleted record, once. False when the identifier is empty, the entry cannot be appended,
// or the one to remove is locked by somebody else.
[[nodiscard]] bool RSDEL(Session& session, const Deletion& deletion = {});

struct FieldChanges {
    // Either one field, counted from 1, and its value; or a value for every field in `values`.
    std::optional<std::size_t> field_number = {};
    Value value = {};
    ArrayReference values = {};
    std::optional<int> area = {};
    std::optional<std::string> stamp = {};
    std::optional<std::string> identifier = {};
    std::optional<std::string> workstation = {};
    bool force = false;  // notes the one field even when its value stays the same
    std::optional<int> code_area = {};
};

// Writes field values into the current record of the area, which the caller has locked, and stamps
// those that differ. False when the identifier is empty (the values are written all the same) or
// the entry stayed locked by somebody else (nothing is written); either is shown to the user.
[[nodiscard]] bool RSSET(Session& session, const FieldChanges& changes);

// Holds the whole journal through a batch of changes; until RSUNLOCK the writers neither lock nor
// commit nor release. True when the lock was had; there is one attempt, at once.
[[nodiscard]] bool RSLOCK(Session& session);
// Commits and releases the journal; always false.
bool RSUNLOCK(Session& session);

// Stamp of the last change of one field, counted from 1, or the empty stamp. `changer` receives the
// workstation's code when there is such an entry.
std::string RSDTOF(Session& session, const std::string& table_code, const std::string& identifier,
                   std::size_t field_number, std::string* changer = nullptr);

}  // namespace brenik
