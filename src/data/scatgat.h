// A whole record in and out of a buffer: one value for each field, in field order.

#pragma once

#include "session/session.h"

namespace brenik {

// A new buffer with the current record's values.
[[nodiscard]] ArrayReference SCATGAT(Session& session);

// Writes a buffer into the current record, which the caller has locked, and answers the buffer.
// Fields past the end of a short buffer stay as they are. With `stamp` the record's ENTRY and
// OPERATOR become today and the session's operator; the table must have both.
ArrayReference SCATGAT(Session& session, const ArrayReference& buffer, bool stamp = false);

}  // namespace brenik
