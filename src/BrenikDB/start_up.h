// Starting and ending a session.

#pragma once

#include <string>

#include "session/session.h"

namespace brenik {

// Creates the session variables and the settings table, empties the trace log, reads the settings
// files and opens the seven tables of the practice, each in its own work area. After a failure, the
// tables opened so far stay open. May be repeated in any state; tables open in another folder are
// closed first.
int StartUp(Session& session, const std::string& data_path, bool trace);

// Closes every table. A second call in a row returns kAlreadyShutDown.
int ShutDown(Session& session);

}  // namespace brenik
