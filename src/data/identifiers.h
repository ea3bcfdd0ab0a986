// Identifiers of records, from the counters of the system table.
//
// The system table's record of counters (SystemRecord) holds one for each table that gives its
// records identifiers. The second slot of the notes, work area 16, shares the counter of work area
// 4, and there the identifier goes into the record that is current in work area 4.

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

// The next identifier of one table, and the counter that it comes from.
//
// A counter alone does not know: it may be unreadable, from an older backup, or have lost its last
// steps in a power failure. So an identifier is looked for before it is handed out: in the table's
// order of identifiers and in the journal. One that exists already is passed over, as far as the
// highest one with this installation's prefix; where hardly any are left above that one, as far as
// the next that is free. REQUIRES: the counter record is locked and up to date.
class NextIdentifier {
  public:
    // Of table number `table`, for a record of work area `area`. EngineFault kLimit when counter,
    // MYUDN or U_ID cannot hold a further identifier.
    NextIdentifier(Session& session, int table, int area);

    // False when the counter record has no counter for the table: no identifier is issued.
    bool issued() const { return !counter_.empty(); }
    const std::string& text() const { return text_; }
    // The order of the area's table that knows its identifiers; 0 when it has none.
    std::size_t order() const { return order_; }
    // Goes on to another identifier if the journal has this one already, or the order has.
    void pass_over_known();
    void pass_over_journalled();
    // This one exists already.
    void pass_over();

    // The counter is on its way before anything names the identifier: a process that ends then
    // leaves a number unused.
    void store();
    // Nothing has been given the identifier after all.
    void take_back();

  private:
    std::optional<std::string> last_known(const std::string& limit) const;
    bool is_known(const std::string& identifier) const {
        return last_known(identifier) == identifier;
    }
    std::int64_t highest() const;
    void set(std::int64_t number);
    void write(std::int64_t number);
    void trace(const std::string& line) const;

    Session& session_;
    std::string counter_;
    std::string table_code_;
    int area_;
    std::size_t order_ = 0;
    std::string prefix_;
    std::int64_t last_ = 0;   // as the counter says
    std::int64_t limit_ = 0;  // the greatest number that all fields can hold
    std::int64_t number_ = 0;
    std::string text_;
};

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
