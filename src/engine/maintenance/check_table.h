// The findings of a check, in the form that repairs need.

#pragma once

#include "engine/maintenance/check_header.h"
#include "engine/maintenance/check_memo.h"
#include "engine/maintenance/open_table_files.h"
#include "engine/maintenance/reporter.h"

namespace brenik::maintenance {

struct TableFindings {
    HeaderFacts header;
    MemoFacts memo;
    bool index_faults = false;  // or notes
    bool leftover = false;      // an index that was never finished exists
};

// Checks a table whose own file is open; opens the other files with the same access.
TableFindings check_open_table(OpenTableFiles& files, Access access, const Reporter& report,
                               const Progress& progress);

}  // namespace brenik::maintenance
