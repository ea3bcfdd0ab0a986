// Adding a record: an empty transaction buffer, then the append with identifier and links.

#pragma once

#include <string>

#include "session/session.h"

namespace brenik {

// Leaves the table on its phantom record and fills the buffer with empty values; nothing is locked
// or appended. New contacts start as active.
int AddStart(Session& session, int table);

// Appends a record and writes the buffer into it. Codes that exist already are refused. On entry
// `identifier` may name the contact that a new matter is to be linked to; on return it is the U_ID
// of the table's current record, the new one on success. A matter stays added when its link fails:
// then the code says so, and `identifier` is the matter's.
int AddEnd(Session& session, int table, std::string& identifier);

}  // namespace brenik
