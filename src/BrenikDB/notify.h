// The host reports records that it added or deleted by itself.

#pragma once

#include <cstdint>

#include "session/session.h"

namespace brenik {

// Each notes the record in the change journal and leaves the record itself unchanged. The table
// stays current, on that record.
int AddedRec(Session& session, int table, std::int64_t record);
// If the work area is empty, leaves work area 1 current.
int DeletedRec(Session& session, int table, std::int64_t record);

}  // namespace brenik
