// Taking the system table for maintenance, and comparing it with a new copy.
//
// Whoever takes it first asks the companion program, where that runs, to close its tables, and
// leaves work area 5, where the system table lies, current.

#pragma once

#include "session/session.h"

namespace brenik {

// Opens the system table exclusively, in one attempt. When somebody else uses it the user is told,
// a system table that was open before is opened again, shared, and the result is false.
[[nodiscard]] bool GET_EXCLUSIVE(Session& session);

// Closes every table but the system table, which is opened anew, by default exclusively. With
// `exclusive` nothing is closed before the system table has been had; where it cannot be, the user
// is told, it is opened again as the setting SharedUse says, and the result is false. `quiet`
// leaves the companion program alone.
[[nodiscard]] bool CLOSEMOST(Session& session, bool exclusive = true, bool quiet = false);

// True when the tables under the aliases "NEWSYS" and "LAWSYS" agree in the name of their tenth
// field, the former beginning with the latter. "LAWSYS" is opened for as long as that takes where
// no work area holds it; the current work area stays.
[[nodiscard]] bool SAMELAXSYS(Session& session);

}  // namespace brenik
