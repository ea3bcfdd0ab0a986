// The companion batch program, which opens tables of its own while it runs.

#pragma once

#include <string>

#include "session/session.h"

namespace brenik {

// The switch that asks the companion to close its tables; the leading blank is part of it.
inline constexpr const char* kCloseCompanionTables = " /CLOSEBRENIK";

// Always false without hooks.
inline bool BATISRUNNING(const Session& session) { return session.companion.is_running(); }

// Runs the companion with a command-line switch; does nothing without hooks.
inline void RUNTHEBAT(const Session& session, const std::string& command_line) {
    session.companion.run(command_line);
}

}  // namespace brenik
