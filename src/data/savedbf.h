// Saving and restoring the navigation state of a work area.

#pragma once

#include "session/session.h"

namespace brenik {

// The navigation state of the current work area; nil if the area is empty or has no order open. The
// state is an array:
//   1  its relations, a list of pairs: target work area, expression text
//   2  top scope of the controlling order
//   3  bottom scope
//   4  record number, 0 at end of file
//   5  number of the controlling order
//   6  alias
//   7  filter expression, empty if there is none
//   8  unused
//   9  record numbers of the relations' targets
[[nodiscard]] Value SAVEDBF(Session& session);

// Selects the work area with the state's alias and restores its state. Relations from the contacts
// or matters to their notes and cross-references become scoped ones. False, with nothing changed,
// if the state is empty or no work area has that alias. Skips a relation to an empty work area. If
// the order no longer exists, skips the scopes and selects physical order. Throws EngineFault for a
// relation or filter that no longer compiles. The second argument is not used.
bool RESTDBF(Session& session, const Value& state, bool = false);

}  // namespace brenik
