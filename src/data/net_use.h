// Opening tables that many users share, and choosing the server that serves them.

#pragma once

#include <string>

#include "c_source/Data.h"
#include "session/session.h"

namespace brenik {

// Server types of the engine.
inline constexpr int kLocalServer = 1;
inline constexpr int kRemoteServer = 2;

// Opens a table, with retries a second apart, and attaches its compound index where asked and not
// yet done by the engine; after a retry under the table's own name, and whatever the engine has
// done. A relative name lies in the data folder. False when every open failed, or the file is
// damaged: then the area is empty, the network error flag set, and the reason noted (fault_file.h).
[[nodiscard]] bool NET_USE(Session& session, const std::string& file, const NetUse& options = {});

// The server type that "LAWSYS.INI" in a folder (with its trailing backslash) asks for.
Number GETSERVERTYPE(Session& session, const std::string& folder);

// Decides which server type to use when `requested` is wanted: 2 remote, 1 local, 0 none. What
// stands in the way of the wanted one is shown to the user and noted in "lawtemp\DataServer.log".
[[nodiscard]] int CHECKSERVER(Session& session, int requested);

}  // namespace brenik
