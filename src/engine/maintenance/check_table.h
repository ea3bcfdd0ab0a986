// The whole check of one table, for reports and for repairs.

#pragma once

#include "engine/maintenance/check_header.h"
#include "engine/maintenance/check_memo.h"
#include "engine/maintenance/open_table_files.h"
#include "engine/maintenance/reporter.h"

namespace brenik::maintenance {

// Checks the table and the files that belong to it. A file that cannot be opened, a file that
// cannot be read, and a table too large for this machine's memory are findings too.
CheckedTable check_table(const std::string& path, const Report& report, const Progress& progress);

// The findings in the form that repairs need.
struct TableFindings {
    HeaderFacts header;
    MemoFacts memo;
    bool index_faults = false;  // or notes
};

// Checks a table whose own file is open; opens the other files with the same access.
TableFindings check_open_table(OpenTableFiles& files, Access access, const Reporter& report,
                               const Progress& progress);
// The same, but opens the index without checking it.
TableFindings check_without_index(OpenTableFiles& files, Access access, const Reporter& report,
                                  const Progress& progress);

}  // namespace brenik::maintenance
