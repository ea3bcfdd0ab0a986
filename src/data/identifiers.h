// Identifiers of records, from the counters of the system table.
//
// The system table lies in work area 5; its current record holds a counter U_ID<n> for each table
// that gives its records identifiers, n being the table's work area. An identifier is the
// installation's MYUDN followed by the counter in 5 base-62 digits; the first one encodes 1. The
// second slot of the notes, work area 16, shares the counter of work area 4, and there the
// identifier goes into the record that is current in work area 4.

#pragma once

#include <optional>
#include <string>

#include "data/record_object.h"
#include "session/session.h"

namespace brenik {

// Locks the current record of a work area, as REC_LOCK does.
[[nodiscard]] bool lock_record_of(Session& session, int area);

// Runs `write` while the session may write the current record of a work area, under a lock of its
// own where the session had none. False, with nothing run, when that stayed somebody else's.
template <class Write>
[[nodiscard]] bool with_writable_record(Session& session, int area, Write write) {
    Table& table = session.areas.table(area, "REC_LOCK");
    const RecordNumber record = table.record_number();
    const bool owned = table.owns(record);
    if (!owned && !lock_record_of(session, area)) return false;
    write();
    if (!owned) table.unlock_record(record);
    return true;
}

// Runs `work`, then releases the system table, where the caller has locked the counter record;
// after a fault too, with what that left half done in the counter dropped.
template <class Work>
[[nodiscard]] bool releasing_counter(Session& session, Work work) {
    Table& counters = session.areas.table(kSystemArea, "UNLOCK");
    try {
        const bool done = work();
        counters.unlock_all();
        return done;
    } catch (const EngineFault&) {
        counters.abandon_changes();
        counters.unlock_all();
        throw;
    }
}

// Brings the counter record up to date after its lock and before its first field is read.
void reread_counter(Session& session);

// Takes the next identifier of table number `table`, writes it into the current record of `area`
// and gives it to the object, if any. Nothing when the counter record has no counter for the table.
// REQUIRES: the counter record is locked and up to date, and the record is locked.
std::optional<std::string> issue_identifier(Session& session, int table, int area,
                                            RecordObject* object);

struct NextUid {
    bool record_locked = false;   // the current record is locked already, and stays so
    bool counter_locked = false;  // likewise the counter record
    RecordObject* object = nullptr;
    std::optional<int> table = {};  // number of the counter; by default the object's, else current
};

// Gives the current record the next identifier, which `identifier` receives too. False, with
// nothing issued, when the table has no U_ID or no counter, the system table is not open, or a lock
// stayed somebody else's. No stamp is added.
[[nodiscard]] bool NEXTUID(Session& session, std::string& identifier, const NextUid& options = {});

}  // namespace brenik
