// The table file: its header, its records and the locks on them.
//
// A cached record count is never trusted: the count is read from the header whenever a result
// depends on it, and lowered if the file is too short to hold that many. A record is complete in
// the file before the header counts it.

#pragma once

#include <array>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/local/record_block.h"
#include "engine/locks/held_locks.h"
#include "engine/locks/lock_queue.h"
#include "engine/locks/lock_scheme.h"
#include "engine/locks/open_file.h"
#include "engine/record/dbf_file.h"
#include "engine/table.h"
#include "platform/file.h"

namespace brenik::local {

class TableFile {
  public:
    // Throws Refused when the file is missing, not permitted, held exclusively by others, or in use
    // in the other locking mode.
    static std::unique_ptr<TableFile> open(const std::string& path, const locks::FileUse& use);

    // Reopens the file after its share's session was lost; no record is locked then. Throws
    // EngineFault when it cannot be opened or is now another table.
    void reopen();

    const std::string& path() const { return file_.path(); }
    const record::TableLayout& layout() const { return layout_; }
    bool exclusive() const { return exclusive_; }

    // The current count in the file.
    RecordNumber count();
    // True for 1 to count(); reads the file only for numbers beyond the last known count.
    bool holds(RecordNumber record) {
        return record != 0 && (record <= known_count_ || record <= count());
    }
    // Fills `into` with whole records from `first` on; false when they are not all there.
    bool read_many(RecordNumber first, MutableBytes into) const {
        return file_.read_at(record::record_offset(layout_, first), into) == into.size();
    }
    // Reads one record; the number must be 1 to count(). `earlier` is the result of an earlier
    // reading, or nothing.
    void read(RecordNumber record, MutableBytes into, Bytes earlier = {});
    // Like read(), for a table that is read in file order: after a few such steps it reads many
    // records at once, and what it returns can be 20 ms old.
    void read_in_scan(RecordNumber record, MutableBytes into);
    // True for a record that was read with others for the next steps of a scan, so it exists.
    bool scanned(RecordNumber record) const { return block_.holds(record); }
    void end_scan() { block_.forget(); }
    // `before` is what the record holds now; it is written back if the write fails half-way.
    void write(RecordNumber record, Bytes bytes, Bytes before);
    // EngineFault kInputOutput when the file no longer has a name.
    void require_named() const { require_named(file_.named()); }
    // Throws the faults that an Addition would meet.
    void require_room();
    // Adds one record at the end, under the append lock, which the object holds. Once counted, the
    // record stays locked, unless the caller wants it unlocked.
    class Addition {
      public:
        // Not begun if a lock was refused. EngineFault kDamagedFile, kInputOutput or kLimit when
        // the file cannot take a record.
        Addition(TableFile& file, LockTry attempt, Table::Leave leave = Table::Leave::kLocked);
        ~Addition();
        Addition(const Addition&) = delete;
        Addition& operator=(const Addition&) = delete;

        bool begun() const { return record_ != 0; }
        RecordNumber record() const { return record_; }
        // What an interrupted addition has left in the record's place. It may have keys.
        std::optional<std::vector<Byte>> left_over() const;
        // Sets the autoincrement columns.
        void fill_in(MutableBytes bytes);
        // Writes the record to the file, where nobody sees it until it is counted.
        void write(Bytes bytes);
        void count();
        // Takes back the last count().
        void uncount();

      private:
        TableFile& file_;
        std::optional<locks::HeldLock> append_lock_;
        RecordNumber record_ = 0;
        bool left_over_ = false;
        bool counted_ = false;
    };
    void sync() { file_.sync(); }
    const platform::File& file() const { return file_; }
    // Sets the header flag that makes the structural index open with the table.
    void mark_as_indexed() { record::mark_as_indexed(file_, layout_); }

    locks::HeldLocks& locks() { return held_; }
    const locks::HeldLocks& locks() const { return held_; }

  private:
    void raise_count();
    void set_count(RecordNumber from, RecordNumber to);
    void ask_server() const;
    TableFile(platform::File file, bool exclusive, locks::LockMode mode)
        : file_(std::move(file)),
          exclusive_(exclusive),
          mode_(mode),
          layout_(read_layout()),
          scheme_(layout_, mode) {}
    record::TableLayout read_layout();
    void require_same_layout();
    void keep_other_mode_out();
    bool keep_strangers_out();
    std::optional<bool> is_locked(RecordNumber first, RecordNumber last) const;
    bool read_between_writes(RecordNumber record, MutableBytes into, Bytes earlier);
    bool stays_locked(RecordNumber record);
    bool read_whole(RecordBlock::Range range, MutableBytes into);
    bool crosses_page(RecordNumber record) const;
    void keep_whole(RecordNumber record, platform::LockKind kind,
                    std::optional<locks::HeldLock>& held);
    void read_once(RecordNumber record, MutableBytes into) const;
    RecordNumber counted_in_header() const;
    struct Place {
        RecordNumber record;
        bool left_over;  // the file holds an uncounted record there
    };
    Place next_place();
    void require_newest(RecordNumber counted);
    void require_named(bool named) const;
    void step_autoincrement();
    void replace(std::uint64_t offset, Bytes bytes, Bytes before);

    platform::File file_;
    bool exclusive_;
    locks::LockMode mode_;
    RecordNumber known_count_ = 0;  // the header's count when the file was last long enough for it
    RecordNumber seen_count_ = 0;   // the highest count not known to be taken back
    std::optional<std::chrono::steady_clock::time_point> older_since_;  // a share shows less since
    record::TableLayout layout_;
    locks::LockScheme scheme_;
    locks::HeldLocks held_{file_, scheme_, mode_, exclusive_};
    locks::LockQueue append_queue_{file_};
    bool marked_ = false;          // the positions of compatible programs are locked
    bool count_doubtful_ = false;  // written when others may have raised it further
    RecordBlock block_{layout_.record_length};
    std::vector<Byte> again_;  // a second reading
    // Records that others keep locked, found a moment ago.
    struct KeptLocked {
        RecordNumber record = 0;
        std::chrono::steady_clock::time_point until{};
    };
    std::array<KeptLocked, 8> kept_locked_;
    std::size_t next_kept_locked_ = 0;
};

}  // namespace brenik::local
