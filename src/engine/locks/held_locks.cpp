// Acquires and releases locks.

#include "engine/locks/held_locks.h"

namespace brenik::locks {

bool HeldLocks::lock(RecordNumber record, LockTry attempt) {
    if (owns(record)) return true;
    const bool locked = queue_.attempt(scheme_.record(record), LockScheme::queue(record), attempt);
    if (locked) records_.insert(record);
    return locked;
}

bool HeldLocks::lock_new(RecordNumber record) {
    if (owns(record)) return true;
    if (!file_.try_lock(scheme_.record(record))) return false;
    records_.insert(record);
    return true;
}

// Own record locks lie inside the table's range and conflict with its lock, so they are released
// first. If the table is refused, they are acquired again as far as possible.
bool HeldLocks::lock_table(LockTry attempt) {
    if (owns_all()) return true;
    const std::set<RecordNumber> held = records_;
    unlock_all();
    table_ = file_.lock_within(table_range_, platform::LockKind::kExclusive,
                               attempt == LockTry::kInTurn ? kTurn_ms : 0);
    if (!table_) {
        for (const RecordNumber record : held) lock(record, LockTry::kInTurn);
    }
    return table_;
}

void HeldLocks::unlock(RecordNumber record) {
    if (records_.erase(record) != 0) file_.unlock(scheme_.record(record));
}

void HeldLocks::unlock_all() {
    while (!records_.empty()) unlock(*records_.begin());
    if (table_) file_.unlock(table_range_);
    table_ = false;
}

void HeldLocks::forget() {
    records_.clear();
    table_ = false;
}

}  // namespace brenik::locks
