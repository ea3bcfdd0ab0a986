// What can be called by name: the library's routines, and the table operations below them.

#pragma once

#include <span>
#include <string_view>

#include "call_arguments.h"
#include "session/session.h"

namespace brenik::tools {

struct Routine {
    std::string_view name;       // found in any letter case
    std::string_view arguments;  // for people; optional ones in square brackets
    Value (*call)(Session& session, CallArguments& arguments);
};

// A size as a value.
inline Value count(std::size_t number) { return static_cast<std::int64_t>(number); }

// The result of a routine that answers nothing.
template <class Call>
Value nothing(Call call) {
    call();
    return {};
}

// The first argument as an end of a scope: 0 top, 1 bottom.
inline ScopeEnd scope_end(const CallArguments& arguments) {
    return arguments.whole(0) == 0 ? ScopeEnd::kTop : ScopeEnd::kBottom;
}

std::span<const Routine> library_routines();
std::span<const Routine> table_operations();

}  // namespace brenik::tools
