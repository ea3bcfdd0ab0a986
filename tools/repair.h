// The commands `repair` and `reindex`: repair what `check` reports.

#pragma once

#include <string>
#include <vector>

#include "practice.h"

namespace brenik::tools {

struct RepairRequest {
    TableArguments where;
    std::string backup;
    bool dry_run = false;
    bool force = false;          // work on a table whose records seem to be misplaced, too
    bool without_memos = false;  // of `repair`: give up a lost memo file
    // The next two are options of `reindex`, for a single table.
    std::vector<std::string> tags;  // NAME=KEY[;FOR CONDITION][;UNIQUE][;CANDIDATE][;DESCENDING]
    std::string like;               // a table, named in one word, whose tags to use
    bool json = false;
};

// Both print what they do and return the exit code: a problem if something could not be repaired,
// locked if other programs use a table.
ExitCode repair(const RepairRequest& request);
ExitCode reindex(const RepairRequest& request);

}  // namespace brenik::tools
