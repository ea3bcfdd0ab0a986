// Opening shared tables, and choosing the server type.

#pragma once

#include <string>

#include "c_source/retries.h"
#include "session/session.h"

namespace brenik {

// Opens a table, retries once per second, and attaches its compound index if asked. After the first
// attempt it does so only if the engine has not attached the index; after a retry always, under the
// table's own name. A relative name lies in the data folder. False if every attempt failed or a
// file is damaged: then the area is empty, the network error flag is set and the reason is noted
// (fault_file.h).
[[nodiscard]] bool NET_USE(Session& session, const std::string& file, const NetUse& options = {});

// The server type in "LAWSYS.INI" of a folder; `folder` ends in a backslash.
Number GETSERVERTYPE(Session& session, const std::string& folder);

// Chooses the server type for `requested`; returns 2 for remote, 1 for local, 0 for none. If a
// wanted server is missing, shows a message; for the remote one, also writes
// "lawtemp\DataServer.log".
[[nodiscard]] int CHECKSERVER(Session& session, int requested);

}  // namespace brenik
