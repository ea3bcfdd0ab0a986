// What went wrong, for whoever has to find out: one line for each fault and refused open.

#pragma once

#include <string_view>

#include "session/session.h"

namespace brenik {

// `call` is the operation or routine that met the fault; `reason` begins with the file. It goes to
// the trace log too, where tracing is on.
void note_fault(Session& session, std::string_view call, std::string_view reason) noexcept;

}  // namespace brenik
