// Reports of records that the host added or deleted by its own means.

#pragma once

#include <cstdint>

#include "session/session.h"

namespace brenik {

// Each notes the record in the change journal and changes nothing in the record itself; the table
// stays current, on that record.
int AddedRec(Session& session, int table, std::int64_t record);
// On an empty work area this one leaves work area 1 current.
int DeletedRec(Session& session, int table, std::int64_t record);

}  // namespace brenik
