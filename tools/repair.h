// The commands `repair` and `reindex`: repair what `check` reports.

#pragma once

#include <string>
#include <vector>

#include "practice.h"

namespace brenik::tools {

struct RepairRequest {
    std::string path;  // a folder or a table
    std::string backup;
    std::vector<std::string> tags;  // NAME=KEY[;FOR CONDITION][;UNIQUE][;CANDIDATE][;DESCENDING]
    bool dry_run = false;
    bool json = false;
};

// Both print what they do and return the exit code: a problem if something could not be repaired,
// locked if other programs use a table.
ExitCode repair(const RepairRequest& request);
ExitCode reindex(const RepairRequest& request);

}  // namespace brenik::tools
