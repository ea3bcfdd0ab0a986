// The operations by name, as the exports find them.
//
// Every operation has one shape here: arguments in order, absent ones at the end left out, and the
// result as a value. An argument that the operation hands back is replaced in place.

#pragma once

#include <span>
#include <string_view>

#include "session/session.h"

namespace brenik {

using Operation = Value (*)(Session& session, std::span<Value> arguments);

// Null when no operation has that name; letter case does not matter.
Operation find_operation(std::string_view name);

}  // namespace brenik
