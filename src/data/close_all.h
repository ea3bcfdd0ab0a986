// Closing every table of the session.

#pragma once

#include "session/session.h"

namespace brenik {

// Forgets all relations, hands pending writes over and closes what the slots hold, then what the
// engine still holds besides.
void CLOSEALL(Session& session);

}  // namespace brenik
