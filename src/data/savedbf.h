// Where a work area stands, kept and brought back.

#pragma once

#include "session/session.h"

namespace brenik {

// The navigation state of the current work area, or nil when that is empty or has no order open: an
// array of
//   1  relations out of it, a list of pairs: target work area, expression text
//   2  top scope of the controlling order
//   3  bottom scope
//   4  record number, 0 at end of file
//   5  number of the controlling order
//   6  alias
//   7  filter expression, empty when there is none
//   8  nothing
//   9  record numbers of the relations' targets
[[nodiscard]] Value SAVEDBF(Session& session);

// Makes the work area with the state's alias current and brings its state back; relations from the
// contacts or matters to their notes and cross-references become scoped ones. False, with nothing
// changed, when the state is empty or no work area holds that alias. What else has gone meanwhile
// is passed over: a relation to an empty work area, and, without the order, its scopes (the table
// is in physical order then). A relation or filter that does not compile any more is an
// EngineFault. The second argument is not used.
bool RESTDBF(Session& session, const Value& state, bool = false);

}  // namespace brenik
