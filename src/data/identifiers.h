// Identifiers of records, from the counters of the system table.
//
// The system table's record of counters (SystemRecord) holds one counter per table with
// identifiers. The second slot of the notes, work area 16, shares the counter of work area 4. There
// the current record of work area 4 receives the identifier.

#pragma once

#include <optional>
#include <string>

#include "data/record_object.h"
#include "session/session.h"

namespace brenik {

// Locks the current record of a work area, like REC_LOCK.
[[nodiscard]] bool lock_record_of(Session& session, int area);

// Runs `write` while the current record of a work area is locked. Acquires the lock if the session
// does not hold it, and releases it afterwards. False, without running `write`, if another session
// holds it.
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

// Runs `work`, then releases all locks on the system table. REQUIRES: the caller has locked the
// counter record. After a fault, also drops half-done changes to the counter.
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

// Reads the counter record again. Call this after locking it and before reading its first field.
void reread_counter(Session& session);

// The next identifier of one table, and its counter.
//
// A counter alone is not proof: it may be unreadable, come from an older backup, or have lost its
// last steps in a power failure. So before an identifier is issued, it is looked up in the table's
// order of identifiers and in the journal. If it exists, the counter jumps past the highest one
// with this installation's prefix; if hardly any are left above that one, past each used one to the
// next free one. REQUIRES: the counter record is locked and up to date.
class NextIdentifier {
  public:
    // For table number `table` and a record of work area `area`. Throws EngineFault(kLimit) if
    // counter, MYUDN or U_ID cannot hold another identifier.
    NextIdentifier(Session& session, int table, int area);

    // False if the counter record has no counter for the table: no identifier is issued.
    bool issued() const { return !counter_.empty(); }
    const std::string& text() const { return text_; }
    // The order of the area's table with its identifiers as keys; 0 if it has none.
    std::size_t order() const { return order_; }
    // Moves to another identifier if the journal or the order knows this one; the second checks the
    // journal alone.
    void pass_over_known();
    void pass_over_journalled();
    // Moves to another identifier because this one exists.
    void pass_over();

    // Writes the counter. Called before anything is written under the identifier, so that a process
    // that ends in between leaves only an unused number.
    void store();
    // Restores the counter if nothing received the identifier.
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
    std::int64_t last_ = 0;   // the counter's value
    std::int64_t limit_ = 0;  // the greatest number that all fields can hold
    std::int64_t number_ = 0;
    std::string text_;
};

struct NextUid {
    bool record_locked = false;   // the current record is already locked, and stays locked
    bool counter_locked = false;  // the counter record is already locked, and stays locked
    RecordObject* object = nullptr;
    std::optional<int> table = {};  // table of the counter; default: the object's, else current
};

// Gives the current record the next identifier and stores it in `identifier`. Adds no stamp. False,
// with nothing issued, if the table has no U_ID or no counter, the system table is not open, or
// another session holds a lock.
[[nodiscard]] bool NEXTUID(Session& session, std::string& identifier, const NextUid& options = {});

}  // namespace brenik
