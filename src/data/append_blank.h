// The append that recycles deleted records.

#pragma once

#include "session/session.h"

namespace brenik {

// Makes a blank record current and leaves it locked: the top one of the order "DELETED", recalled,
// emptied and given a new identifier and a stamp, where that is a deleted record and can be locked;
// otherwise one that ADD_REC appends. False when that failed. Deleted records are hidden
// afterwards, whatever the setting was before; the controlling order is as before.
[[nodiscard]] bool APPENDBLANK(Session& session);

}  // namespace brenik
