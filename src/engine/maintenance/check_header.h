// What a table's header and length say, and which faults they have.

#pragma once

#include <optional>
#include <vector>

#include "engine/maintenance/open_table_files.h"
#include "engine/maintenance/reporter.h"
#include "engine/record/dbf_file.h"

namespace brenik::maintenance {

// What follows the last counted record.
enum class Tail {
    kSound,       // the end mark, or nothing if the version does without
    kCutShort,    // the file ends before the last counted record does
    kUncounted,   // whole records that the header does not count
    kUnfinished,  // one blank record, of an append that was not acknowledged
    kNoEndMark,   // neither the end mark nor a record, or nothing where the mark belongs
    kRubbish,     // the end mark, and at least a record's length of bytes after it
};

struct HeaderFacts {
    std::optional<record::TableLayout> layout;  // empty: the table cannot be interpreted
    // The header with what can be proved corrected; empty when nothing is to be corrected.
    std::vector<Byte> corrected;
    RecordNumber counted = 0;  // in the header
    RecordNumber held = 0;     // whole records that fit the file
    RecordNumber usable = 0;   // the number of records that the table should count
    Tail tail = Tail::kSound;
    std::uint64_t size = 0;

    std::uint64_t end_of(RecordNumber records) const {
        return record::end_of_records(*layout, records);
    }
};

// Checks the header, then its count against the file's length under the lock of an append.
HeaderFacts check_header(platform::File& table, const Reporter& report);

}  // namespace brenik::maintenance
