// Adding a record: AddStart empties the transaction buffer, AddEnd appends the record with its
// identifier and link.

#pragma once

#include <string>

#include "session/session.h"

namespace brenik {

// Moves the table to its phantom record and fills the buffer with empty values. Locks and appends
// nothing. A new contact is active by default.
int AddStart(Session& session, int table);

// Appends a record with the buffer's values. Refuses a code that already exists. On entry
// `identifier` may name the contact to link a new matter to; on return it is the U_ID of the
// table's current record, which is the new record on success. If a matter's link
// fails, the matter stays added: the code reports the failure and `identifier` names the matter.
int AddEnd(Session& session, int table, std::string& identifier);

}  // namespace brenik
