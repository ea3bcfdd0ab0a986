// Changing a record: choose it, set fields in the transaction buffer, write the buffer.

#pragma once

#include <cstdint>
#include <string>

#include "session/session.h"

namespace brenik {

// Chooses a record by its identifier, or by the first one that begins with the given text, and
// fills the buffer from it. The table's order U_ID stays active.
int EditStart(Session& session, int table, const Value& identifier);

// Chooses a record by its number, deleted or not, and fills the buffer from it.
int EditBegin(Session& session, int table, std::int64_t record);

// Converts text to the type of a buffer element and stores it there; the table is never touched.
// Record 0 means whichever is current. Serves additions too.
int SetField(Session& session, int table, std::int64_t record, const std::string& field,
             const std::string& text);

// Locks the current record, writes the buffer into it and stamps the fields that changed. Buffer
// and position stay, so a refused call can be repeated.
int EditEnd(Session& session, int table, std::int64_t record);

}  // namespace brenik
