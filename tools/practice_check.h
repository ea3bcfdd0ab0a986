// What the tables of a practice say about each other: identifiers, their counters, the journal.

#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "engine/maintenance/maintenance.h"

namespace brenik::tools {

// A counter of the system table and what it must at least be.
struct CounterFault {
    std::string field;
    std::int64_t least;
};

// A journal entry for a record that is not there, with what the journal's fields say: by the time
// it is mended its number may be another entry's.
struct JournalFault {
    RecordNumber record;
    std::string table_code;
    std::string identifier;
    std::string kind;

    bool operator==(const JournalFault&) const = default;
};

// What can be mended of it.
struct PracticeFaults {
    std::vector<CounterFault> counters;
    std::vector<JournalFault> journal_entries;
};

// Reports identifiers that several records have, counters below the identifiers in use (the same
// would be issued once more), journal entries for records that are not there, and added records
// that the journal does not know. Each table is taken from the first of the folders that has it.
// Tables that cannot be read are left to the check of that table. Nothing is said that depends on
// one of the tables `left_alone`, file names in upper case without extension.
PracticeFaults check_practice(const std::vector<std::string>& folders,
                              const maintenance::Report& report,
                              const std::set<std::string>& left_alone = {});

}  // namespace brenik::tools
