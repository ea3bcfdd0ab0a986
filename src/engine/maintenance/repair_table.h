// Repairs the files of one table.
//
// A repair opens the table exclusively, keeps a copy of every file that it changes, and replaces an
// index only when the new one is complete and on the disk. With a trial folder it opens the table
// shared and repairs a copy.

#pragma once

#include <string>

#include "engine/maintenance/finding.h"
#include "engine/maintenance/repair_log.h"

namespace brenik::maintenance {

enum class RepairResult { kNothingToDo, kWhole, kPartly, kInUse, kCannotOpen };

// Repairs what check_table finds, as far as it can be repaired without guessing. kInUse while
// another program has the table open.
RepairResult repair_table(const std::string& path, const RepairOptions& options,
                          const RepairReport& report, const Progress& progress);

// Rebuilds the structural index from the records, with the tags of the old one.
RepairResult reindex_table(const std::string& path, const RepairOptions& options,
                           const RepairReport& report, const Progress& progress);

}  // namespace brenik::maintenance
