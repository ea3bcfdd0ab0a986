// Where the locks of a table lie: byte ranges past the data, the same for every program.
//
// Compatible mode, two schemes. A table with a structural index, or of the later generation
// (versions 30 to 32), counts records down from 0x7FFFFFFE; any other table locks at 1 GB plus the
// record's own offset in the file. Both lock the whole table as 0x40000000 to 0x7FFFFFFE, which
// covers every record byte and the append byte of either scheme.
//
// Proprietary mode: all locks lie past the 4 GB line, where no compatible program looks. What keeps
// the two apart is a shared lock on the positions that compatible programs lock exclusively
// (marker()), and, between programs of this engine, one byte for each mode (use()).
//
// Further up, the same in both modes, lie the places where those wait who found a lock taken
// (queue(), lock_queue.h), and what keeps records whole (whole()). docs/locking.md has all
// positions and their reasons in one table.

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

    LockRange record(RecordNumber record) const;
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
    // What a proprietary user holds shared: every byte that a compatible program would lock, and
    // no byte that a table of that size may use for data.
    LockRange marker() const;

    // Where those wait in line who found a record, or the append or only lock of a file, taken.
    static constexpr LockRange queue(RecordNumber record = 0) {
        return {16 * kLine + std::uint64_t{record} * kPlaces, kPlaces};
    }

    // Held for as long as a record is read or written that the system copies in two pieces.
    static constexpr LockRange whole(RecordNumber record) { return {32 * kLine + record, 1}; }

    // Data must end before this offset. A proprietary table stays clear of its marker, unless
    // nobody who is there holds it.
    std::uint64_t data_limit(bool marked) const;
    // The most records that keep data and lock positions apart.
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
