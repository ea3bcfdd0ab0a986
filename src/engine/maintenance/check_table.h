// What a check finds, for whoever is to mend it.

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
    bool leftover = false;      // an index that was never finished
};

// Checks files of which the table's own is open; opens the others in the same way.
TableFindings check_open_table(OpenTableFiles& files, Access access, const Reporter& report,
                               const Progress& progress);

}  // namespace brenik::maintenance
