// Copies a whole record to and from a buffer: one value per field, in field order.

#pragma once

#include "session/session.h"

namespace brenik {

// Returns a new buffer with the current record's values.
[[nodiscard]] ArrayReference SCATGAT(Session& session);

// Writes a buffer into the current record and returns the buffer. REQUIRES: the caller has locked
// the record. Fields past the end of a short buffer are unchanged. With `stamp`, sets ENTRY to
// today and OPERATOR to the session's operator; the table must have both.
ArrayReference SCATGAT(Session& session, const ArrayReference& buffer, bool stamp = false);

}  // namespace brenik
