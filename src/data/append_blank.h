// An append that recycles deleted records.

#pragma once

#include "session/session.h"

namespace brenik {

// Makes a blank record current and leaves it locked. If the first record of the order "DELETED" is
// deleted and can be locked, it is recalled, emptied, given a new identifier and stamped. Otherwise
// ADD_REC appends a record. False if that fails. Afterwards deleted records are hidden, whatever
// the setting was before; the controlling order is restored.
[[nodiscard]] bool APPENDBLANK(Session& session);

}  // namespace brenik
