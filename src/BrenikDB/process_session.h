// The one session that the exports serve.

#pragma once

#include "session/session.h"

namespace brenik {

// Made on first use, with the embedded engine and this machine's clock and user interface; its
// tables are closed when the library is unloaded.
Session& process_session();

}  // namespace brenik
