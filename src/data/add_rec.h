// Appending a record: its identifier from the system table's counters, its entry in the journal.

#pragma once

#include <functional>
#include <optional>

#include "data/record_object.h"
#include "session/session.h"

namespace brenik {

struct NewRecord {
    // Puts the values into the new record, which then reaches the file as a whole and at once, with
    // its memos and keys. It has its identifier by then, and keeps that one.
    std::function<void()> fill = {};
    RecordObject* object = nullptr;  // told what the new record has been given
    std::optional<bool> assign_identifier = {};
    bool commit = true;  // of the journal, with the entry of the addition
    double seconds = 5;  // to go on repeating the append; 0 or less not at all
};

// Appends a record, blank or filled in, to the current work area and leaves it current and locked.
// With
// `assign_identifier` (by default where the table has a U_ID and the system table is open) the
// table's counter is locked throughout, with the five seconds of any lock, the record receives the
// next U_ID, an event its ENTRY and RNO as well, and the addition is noted in the journal. The
// counter is that of the object's table, where there is an object. False when a lock or the append
// stayed refused: then nothing has been appended and the counter is free.
//
// The second slot of the notes, work area 16, shares the counter of the first, and it is the record
// current in work area 4 that receives the identifier, under a lock for as long as it takes.
[[nodiscard]] bool ADD_REC(Session& session, const NewRecord& options = {});

}  // namespace brenik
