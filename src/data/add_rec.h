// Appending a record: its identifier from the system table's counters, its entry in the journal.

#pragma once

#include <optional>

#include "session/session.h"

namespace brenik {

// Appends a blank record to the current work area and leaves it current and locked. With
// `assign_identifier` (by default where the table has a U_ID and the system table is open) the
// table's counter is locked throughout, the record receives the next U_ID, and the addition is
// noted in the journal, which is committed unless `commit` is false. `seconds` limit the repeats of
// the append, 0 allows none; the counter's lock has its own five. False when either lock stayed
// somebody else's: then nothing has been appended and the counter is free.
[[nodiscard]] bool ADD_REC(Session& session, std::optional<bool> assign_identifier = {},
                           bool commit = true, double seconds = 5);

}  // namespace brenik
