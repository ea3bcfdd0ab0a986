// Appending a record: its identifier from the system table's counters, and its entry in the
// journal.

#pragma once

#include <functional>
#include <optional>

#include "data/record_object.h"
#include "session/session.h"

namespace brenik {

struct NewRecord {
    // Puts the values into the new record. The record then reaches the file at once, with its memos
    // and keys, under the identifier of the append, whatever the values say.
    std::function<void()> fill = {};
    RecordObject* object = nullptr;  // receives what ADD_REC writes to the record
    std::optional<bool> assign_identifier = {};
    bool commit = true;  // commits the journal after the addition's entry
    double seconds = 5;  // how long to retry the append; 0 or less not at all
};

// Appends a record, blank or filled in, to the current work area and leaves it current and locked.
//
// With `assign_identifier`, by default if the table has a U_ID and the system table is open,
// ADD_REC locks the table's counter, with the timeout of any record lock. The record receives the
// next U_ID, an event also its ENTRY and RNO, and the journal notes the addition. The counter is
// that of `object`'s table if there is an object. False if a lock or the append stays refused: then
// nothing was appended and the counter is released.
//
// The second slot of the notes, work area 16, shares the counter of the first. There the current
// record of work area 4 receives the identifier, under a lock for that time only.
[[nodiscard]] bool ADD_REC(Session& session, const NewRecord& options = {});

}  // namespace brenik
