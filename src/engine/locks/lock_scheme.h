// Positions of a table's locks: byte ranges past the data, the same for every program.
//
// Compatible mode has two schemes. A table with a structural index, or of the later generation
// (versions 30 to 32), counts records down from 0x7FFFFFFE; any other table locks at 1 GB plus the
// record's own offset in the file. Both lock the whole table as 0x40000000 to 0x7FFFFFFE, which
// covers every record byte and the append byte of either scheme.
//
// Proprietary mode: all locks lie past the 4 GB line, where no compatible program locks. Two things
// keep the modes apart: a shared lock on the positions that compatible programs lock exclusively
// (marker()) and, between programs of this engine, one byte per mode (use()).
//
// Further up, the same in both modes, lie the queues of processes that wait for a lock (queue(),
// lock_queue.h) and the locks that keep a record whole while it is copied (whole()).
// docs/explanation/locking.md lists all positions with their reasons.

#pragma once

#include <cstdint>

#include "engine/record/table_layout.h"
#include "platform/file.h"

namespace brenik::locks {

enum class LockMode { kCompatible, kProprietary };

using LockRange = platform::ByteRange;

class LockScheme {
  public:
    explicit LockScheme(const record::TableLayout& layout, LockMode mode = LockMode::kCompatible);

    LockRange record(RecordNumber record) const { return records(record, record); }
    // From the first to the last lock byte of these records. No other lock lies between them.
    LockRange records(RecordNumber first, RecordNumber last) const;
    LockRange append() const;
    static constexpr LockRange table(LockMode mode = LockMode::kCompatible) {
        return mode == LockMode::kProprietary ? LockRange{kLine, kLine}
                                              : LockRange{0x40000000, 0x3FFFFFFF};
    }
    static constexpr LockRange index(LockMode mode = LockMode::kCompatible) {
        return mode == LockMode::kProprietary ? LockRange{kLine, 1} : LockRange{0x7FFFFFFE, 1};
    }
    static constexpr LockRange memo(LockMode mode = LockMode::kCompatible) {
        return mode == LockMode::kProprietary ? LockRange{kLine, 1} : LockRange{0x40000000, 1};
    }

    // Held shared by every program of this engine that has the table open in that mode.
    static constexpr LockRange use(LockMode mode) {
        return {2 * kLine + (mode == LockMode::kProprietary ? 1 : 0), 1};
    }
    // Held shared by users in proprietary mode: every byte that a compatible program would lock,
    // and no byte that a table of that size may use for data.
    LockRange marker() const;

    // The queue for a record's lock or, for record 0, for the append lock or only lock of a file.
    static constexpr LockRange queue(RecordNumber record = 0) {
        return {16 * kLine + std::uint64_t{record} * kPlaces, kPlaces};
    }

    // Held while records that the system copies in two pieces are read or written.
    static constexpr LockRange whole(RecordNumber first, RecordNumber last) {
        return {32 * kLine + first, std::uint64_t{last} - first + 1};
    }

    // Data must end before this offset. In proprietary mode that is the marker, unless no present
    // user holds it.
    std::uint64_t data_limit(bool marked) const;
    // The greatest number of records that keeps data and lock positions apart.
    RecordNumber max_records(bool marked = true) const;

  private:
    static constexpr std::uint64_t kLine = std::uint64_t{1} << 32;
    static constexpr std::uint64_t kPlaces = 8;

    LockMode mode_;
    bool counts_down_;
    std::uint64_t header_length_;
    std::uint64_t record_length_;
};

}  // namespace brenik::locks
