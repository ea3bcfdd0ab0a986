// Where the locks of a table lie: byte ranges past the data, the same for every program.
//
// Compatible mode, two schemes. A table with a structural index, or of the later generation
// (versions 30 to 32), counts records down from 0x7FFFFFFE; any other table locks at 1 GB plus the
// record's own offset in the file. Both lock the whole table as 0x40000000 to 0x7FFFFFFE, which
// covers every record byte and the append byte of either scheme.

#pragma once

#include <cstdint>

#include "engine/local/table_layout.h"

namespace brenik::local {

struct LockRange {
    std::uint64_t offset;
    std::uint64_t length;
};

class LockScheme {
  public:
    explicit LockScheme(const TableLayout& layout);

    LockRange record(RecordNumber record) const;
    LockRange append() const;
    static constexpr LockRange table() { return {0x40000000, 0x3FFFFFFF}; }
    static constexpr LockRange index() { return {0x7FFFFFFE, 1}; }
    static constexpr LockRange memo() { return {0x40000000, 1}; }

    // The most records that keep data and lock positions apart: data must end below 1 GB.
    RecordNumber max_records() const;

  private:
    bool counts_down_;
    std::uint64_t header_length_;
    std::uint64_t record_length_;
};

}  // namespace brenik::local
