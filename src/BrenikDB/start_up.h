// Beginning and ending a session.

#pragma once

#include <string>

#include "session/session.h"

namespace brenik {

// Makes the session variables and the settings table anew, empties the trace log, reads the
// settings files and opens the seven tables of the practice, each in its own work area. A start-up
// that fails leaves open what it had opened. May be repeated in any state; what was left open in
// another folder is closed first.
int StartUp(Session& session, const std::string& data_path, bool trace);

// Closes every table. Refused the second time in a row.
int ShutDown(Session& session);

}  // namespace brenik
