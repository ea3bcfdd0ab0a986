// Closing every table of the session.

#pragma once

#include "session/session.h"

namespace brenik {

// Clears all relations, writes pending changes, closes the tables of all work areas, then any other
// table of the engine. Notes faults and continues.
void CLOSEALL(Session& session);

}  // namespace brenik
