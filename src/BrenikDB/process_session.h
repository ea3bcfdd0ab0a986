// The session behind the exports.

#pragma once

#include "session/session.h"

namespace brenik {

// Created on first use with this machine's clock and user interface. Unloading the library closes
// its tables, unless their engine does not allow it. The child of a fork gets a session of its own,
// without tables; if the parent had begun a session, the child's is marked as inherited until the
// child begins one.
Session& process_session();

}  // namespace brenik
