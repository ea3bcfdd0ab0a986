// Repairs the files of one table.
//
// A repair needs exclusive use, keeps a copy of every file that it changes, and replaces an index
// only when the new one is complete and on the disk.

#pragma once

#include <string>

#include "engine/maintenance/finding.h"
#include "engine/maintenance/repair_log.h"

namespace brenik::maintenance {

enum class RepairResult { kNothingToDo, kWhole, kPartly, kInUse, kCannotOpen };

// Repairs what check_table finds, as far as it can be repaired without guessing. Opens the table
// exclusively, so nothing is repaired while another program uses it.
RepairResult repair_table(const std::string& path, const RepairOptions& options,
                          const RepairReport& report, const Progress& progress);

// Rebuilds the structural index from the records, with the tags of the old one.
RepairResult reindex_table(const std::string& path, const RepairOptions& options,
                           const RepairReport& report, const Progress& progress);

}  // namespace brenik::maintenance
