// The companion batch program, which has tables of its own open while it runs.

#pragma once

#include <string>

#include "session/session.h"

namespace brenik {

// Asks the companion to close its tables; the leading blank belongs to it.
inline constexpr const char* kCloseCompanionTables = " /CLOSEBRENIK";

// False unless the session has been given hooks of its own.
inline bool BATISRUNNING(const Session& session) { return session.companion.is_running(); }

// Runs the companion with a command-line switch; nothing happens without hooks.
inline void RUNTHEBAT(const Session& session, const std::string& command_line) {
    session.companion.run(command_line);
}

}  // namespace brenik
