// Records against the memo file: every block that a record names must be inside it, and its own.

#pragma once

#include <optional>
#include <vector>

#include "engine/maintenance/check_header.h"
#include "engine/maintenance/open_table_files.h"
#include "engine/maintenance/reporter.h"

namespace brenik::maintenance {

// A memo that does not lie where it should; what mending it takes.
struct MemoFault {
    RecordNumber record;
    std::size_t field;  // index into the layout's fields
    bool shared;        // its blocks belong to another record's memo too; else it cannot be read
};

struct MemoFacts {
    bool sound_header = true;  // false: missing, or no header that could be used
    bool pointers = false;     // some record names a block
    // What the header should give as the next free block, where that is wrong.
    std::optional<std::uint32_t> next_free;
    std::optional<std::uint16_t> block_size;  // the same
    std::vector<MemoFault> faults;
    RecordNumber bad_marks = 0;  // records that begin with neither blank nor asterisk
};

// Where memos must end. The files do not tell which locking mode is in force, but one that has
// grown past the limit of compatible mode can only be in use in the other.
std::uint64_t memo_limit(std::uint64_t file_size);

// Also looks at the deletion marks, in the same pass over the records.
MemoFacts check_records(OpenTableFiles& files, const HeaderFacts& header, const Reporter& report,
                        const Progress& progress);

}  // namespace brenik::maintenance
