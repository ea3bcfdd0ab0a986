// The record and table locks that this session holds on one table.

#pragma once

#include <set>

#include "engine/locks/lock_queue.h"
#include "engine/locks/lock_scheme.h"
#include "platform/file.h"

namespace brenik::locks {

class HeldLocks {
  public:
    // A table opened exclusively needs no locks: every record is owned.
    HeldLocks(platform::File& file, const LockScheme& scheme, LockMode mode, bool exclusive)
        : file_(file),
          scheme_(scheme),
          table_range_(LockScheme::table(mode)),
          exclusive_(exclusive) {}

    bool lock(RecordNumber record, LockTry attempt);
    // Locks a record that is being added, for which nobody can be waiting.
    bool lock_new(RecordNumber record);
    // A refused try may cost record locks.
    bool lock_table(LockTry attempt);
    void unlock(RecordNumber record);
    void unlock_all();
    // Drops all of them without unlocking, after the file was reopened: none survives that.
    void forget();

    // True when this session may write the record.
    bool owns(RecordNumber record) const { return owns_all() || records_.contains(record); }
    bool owns_all() const { return exclusive_ || table_; }

  private:
    platform::File& file_;
    const LockScheme& scheme_;
    LockRange table_range_;
    LockQueue queue_{file_};
    bool exclusive_;
    bool table_ = false;
    std::set<RecordNumber> records_;
};

}  // namespace brenik::locks
