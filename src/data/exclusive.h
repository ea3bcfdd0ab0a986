// Opening the system table exclusively for maintenance, and comparing it with a new copy.
//
// GET_EXCLUSIVE and CLOSEMOST first ask the companion program, if it runs, to close its tables.
// They leave work area 5, the system table's, current.

#pragma once

#include "session/session.h"

namespace brenik {

// Opens the system table exclusively, in one attempt. If another user has it open, shows a message,
// opens the table again in shared mode if it was open before, and returns false.
[[nodiscard]] bool GET_EXCLUSIVE(Session& session);

// Closes every table except the system table, which it opens again, by default exclusively. With
// `exclusive`, closes nothing until the system table is open exclusively; if that fails, shows a
// message, opens the table as the setting SharedUse says and returns false. With `quiet`, leaves
// the companion program alone.
[[nodiscard]] bool CLOSEMOST(Session& session, bool exclusive = true, bool quiet = false);

// True if the tenth field's name in the table with alias "NEWSYS" begins with the one in "LAWSYS".
// Opens "LAWSYS" for the comparison if no work area holds it. Restores the current work area.
[[nodiscard]] bool SAMELAXSYS(Session& session);

}  // namespace brenik
