// The one session that the exports serve.

#pragma once

#include "session/session.h"

namespace brenik {

// Made on first use, with the embedded engine and this machine's clock and user interface; its
// tables are closed when the library is unloaded. The child of a fork gets one of its own, without
// tables; where the parent had begun a session it is marked as inherited until the child begins
// one.
Session& process_session();

}  // namespace brenik
