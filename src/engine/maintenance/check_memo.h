// Checks records against the memo file: every block that a record names must be in the file and
// belong to no other live record.

#pragma once

#include <optional>
#include <vector>

#include "engine/maintenance/check_header.h"
#include "engine/maintenance/open_table_files.h"
#include "engine/maintenance/reporter.h"

namespace brenik::maintenance {

// A memo that cannot be read, or that overlaps another.
struct MemoFault {
    RecordNumber record;
    std::size_t field;  // index into the layout's fields
    bool shared;  // its blocks also belong to another record's memo; otherwise it cannot be read
};

struct MemoFacts {
    bool sound_header = true;  // false: missing, or without a usable header
    bool pointers = false;     // some record names a block
    // The correct next free block, if the header has a wrong one.
    std::optional<std::uint32_t> next_free;
    std::optional<std::uint16_t> block_size;  // likewise
    std::vector<MemoFault> faults;
    RecordNumber bad_marks = 0;  // records that begin with neither blank nor asterisk
};

// Where memos must end. The files do not show which locking mode is in force, but a file that has
// grown past the limit of compatible mode can only be in use in the other.
std::uint64_t memo_limit(std::uint64_t file_size);

// Also checks the deletion marks and the values, in the same pass over the records.
MemoFacts check_records(OpenTableFiles& files, const HeaderFacts& header, const Reporter& report,
                        const Progress& progress);

}  // namespace brenik::maintenance
