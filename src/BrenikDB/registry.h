// The operations by name, for the exports.
//
// All operations have one signature here: the arguments in order, where trailing ones may be
// absent, and the result as a value. A text result replaces its argument.

#pragma once

#include <span>
#include <string_view>

#include "session/session.h"

namespace brenik {

using Operation = Value (*)(Session& session, std::span<Value> arguments);

struct NamedOperation {
    std::string_view name;       // matched in any letter case
    std::string_view arguments;  // for people; "(ref)" marks a text that is handed back
    Operation run;
};

std::span<const NamedOperation> operations();

// Null when no operation has that name.
Operation find_operation(std::string_view name);

}  // namespace brenik
