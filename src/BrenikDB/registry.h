// The operations by name, as the exports find them.
//
// Every operation has one shape here: arguments in order, absent ones at the end left out, and the
// result as a value. A text that the operation hands back takes its argument's place.

#pragma once

#include <span>
#include <string_view>

#include "session/session.h"

namespace brenik {

using Operation = Value (*)(Session& session, std::span<Value> arguments);

struct NamedOperation {
    std::string_view name;       // found in any letter case
    std::string_view arguments;  // for people; "(ref)" marks a text that is handed back
    Operation run;
};

std::span<const NamedOperation> operations();

// Null when no operation has that name.
Operation find_operation(std::string_view name);

}  // namespace brenik
