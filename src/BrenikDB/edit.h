// Changing a record: select it, set fields in the transaction buffer, write the buffer.

#pragma once

#include <cstdint>
#include <string>

#include "session/session.h"

namespace brenik {

// Selects the record whose identifier is the given text, or the first one whose identifier begins
// with it, and fills the buffer from it. The table's order U_ID stays active.
int EditStart(Session& session, int table, const Value& identifier);

// Selects a record by its number, deleted or not, and fills the buffer from it.
int EditBegin(Session& session, int table, std::int64_t record);

// Converts text to the type of a buffer element and stores it there; never touches the table.
// Record 0 means the current one. Also used between AddStart and AddEnd.
int SetField(Session& session, int table, std::int64_t record, const std::string& field,
             const std::string& text);

// Locks the current record, writes the buffer into it and stamps the changed fields. Keeps buffer
// and position, so the host can repeat a refused call.
int EditEnd(Session& session, int table, std::int64_t record);

}  // namespace brenik
