// Rebuilds a table's structural index, for "repair" and "reindex".

#pragma once

#include "engine/maintenance/check_header.h"
#include "engine/maintenance/repair_log.h"

namespace brenik::maintenance {

// Rebuilds the index from the records, with the tags of the old one and of the options. False if
// the index stays as it was.
bool rebuild_index(OpenTableFiles& files, const HeaderFacts& header, RepairLog& log,
                   const Progress& progress);

}  // namespace brenik::maintenance
