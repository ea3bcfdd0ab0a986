// What a table's header and length say, and what is wrong with them.

#pragma once

#include <optional>
#include <vector>

#include "engine/maintenance/open_table_files.h"
#include "engine/maintenance/reporter.h"
#include "engine/record/dbf_file.h"

namespace brenik::maintenance {

// What the bytes behind the last counted record are.
enum class Tail {
    kSound,       // the end mark, or nothing where the version goes without
    kCutShort,    // the file ends before the last counted record does
    kUncounted,   // whole records that the header does not count
    kUnfinished,  // one blank record: an append that was not acknowledged
    kNoEndMark,   // something other than the end mark, or nothing where one belongs
    kRubbish,     // the end mark, and at least a record's length of bytes behind it
};

struct HeaderFacts {
    std::optional<record::TableLayout> layout;  // empty: nothing of the table can be understood
    // The header with what can be proved put right; empty when it is right as it is.
    std::vector<Byte> mended;
    RecordNumber counted = 0;  // by the header
    RecordNumber held = 0;     // whole records that the file has room for
    RecordNumber usable = 0;   // the number of records that the table should count
    Tail tail = Tail::kSound;
    std::uint64_t size = 0;

    std::uint64_t end_of(RecordNumber records) const {
        return record::end_of_records(*layout, records);
    }
};

// Reads header and length together, under the lock that an append would hold, and reports what is
// wrong.
HeaderFacts check_header(platform::File& table, const Reporter& report);

}  // namespace brenik::maintenance
