// The session behind the exports.

#pragma once

#include "session/session.h"

namespace brenik {

// Created on first use with the embedded engine and this machine's clock and user interface.
// Unloading the library closes its tables. The child of a fork gets a session of its own, without
// tables; if the parent had begun a session, the child's is marked as inherited until the child
// begins one.
Session& process_session();

}  // namespace brenik
