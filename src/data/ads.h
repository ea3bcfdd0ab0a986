// The calls that go straight to the engine, under the names that the practice's programs know.
//
// Apart from ADSLOCKING they return the engine's answer as it is. A status of 0 means success.

#pragma once

#include <optional>
#include <string>

#include "session/session.h"

namespace brenik {

// The name of the table driver, which is the session's engine.
inline constexpr const char* kDriverName = "ADS";

// Registers the driver. An open that names another one is EngineFault kUnknownName.
void RDDINIT(Session& session);

// Without a type it calls nothing and returns 999999.
int ADSSETSERVERTYPE(Session& session, std::optional<int> type);

// The type of server that serves the folder: 2 remote, 1 local, 0 none.
int ADSISSERVERLOADED(Session& session, const std::string& folder);

// Turns proprietary locking on or off; returns the previous setting.
bool ADSLOCKING(Session& session, bool proprietary);

int ADSWRITEALLRECORDS(Session& session);

// Reads the current record of the current work area anew. EngineFault kEmptyWorkArea if the area is
// empty.
int ADSREFRESHRECORD(Session& session);

int ADSCLOSEALLTABLES(Session& session);

}  // namespace brenik
