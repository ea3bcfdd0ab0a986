// Checks what the tables of a practice say about each other: identifiers, counters, the journal.

#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "engine/maintenance/finding.h"
#include "table_text.h"

namespace brenik::tools {

// A counter of the system table, and the least value that it must have.
struct CounterFault {
    std::string field;
    std::int64_t least;
};

// A journal entry for a record that does not exist. It keeps the entry's fields, because the record
// number may belong to another entry by the time it is repaired.
struct JournalFault {
    RecordNumber record;
    std::string table_code;
    std::string identifier;
    std::string kind;

    bool operator==(const JournalFault&) const = default;
};

// The faults that can be repaired.
struct PracticeFaults {
    std::vector<CounterFault> counters;
    std::vector<JournalFault> journal_entries;
};

// Reports four things: identifiers that several records share; counters below the identifiers in
// use, which would issue them again; journal entries for records that do not exist; added records
// that the journal does not name. Reads each table from the first folder that has it. Ignores
// tables that cannot be read; check_table reports those. Reports nothing that depends on a table in
// `left_alone`, file names in upper case without extension.
PracticeFaults check_practice(const std::vector<std::string>& folders,
                              const maintenance::Report& report,
                              const maintenance::Progress& progress,
                              const std::set<std::string>& left_alone = {},
                              EncodingChoice encoding = {});

}  // namespace brenik::tools
