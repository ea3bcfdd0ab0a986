// What the tables of a practice say about each other: identifiers, their counters, the journal.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/local/maintenance.h"

namespace brenik::tools {

// A counter of the system table and what it must at least be.
struct CounterFault {
    std::string field;
    std::int64_t least;
};

// What can be mended of it.
struct PracticeFaults {
    std::vector<CounterFault> counters;
    std::vector<RecordNumber> journal_entries;  // for records that are not there
};

// Reports identifiers that several records have, counters below the identifiers in use (the same
// would be issued once more), and journal entries for records that are not there. Tables that
// cannot be read are left to the check of that table.
PracticeFaults check_practice(const std::string& folder, const local::Report& report);

}  // namespace brenik::tools
