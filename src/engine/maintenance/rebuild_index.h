// Making a table's structural index anew, as "repair" and "reindex" both do.

#pragma once

#include "engine/maintenance/check_header.h"
#include "engine/maintenance/repair_log.h"

namespace brenik::maintenance {

// Builds the index anew from the records, with the tags that the old one and the options tell.
void rebuild_index(OpenTableFiles& files, const HeaderFacts& header, RepairLog& log,
                   const Progress& progress);

}  // namespace brenik::maintenance
