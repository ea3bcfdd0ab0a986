// The callable names: the library's routines, and the table operations below them.

#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <type_traits>

#include "call_arguments.h"
#include "session/session.h"

namespace brenik::tools {

// One call of a routine. It converts to each type of parameter that a routine may have.
struct RoutineCall {
    operator Session&() const { return session; }
    operator CallArguments&() const { return arguments; }
    // The current work area's table, or the work areas. Both throw a fault with the routine's name
    // if the current work area is empty.
    operator Table&() const { return session.areas.table(name); }
    operator WorkAreas&() const {
        session.areas.table(name);
        return session.areas;
    }

    std::string_view name;
    Session& session;
    CallArguments& arguments;
};

template <class Result>
Value to_value(Result result) {
    if constexpr (std::is_integral_v<Result> && !std::is_same_v<Result, bool>) {
        return static_cast<std::int64_t>(result);
    } else {
        return result;
    }
}

// Runs the body of a routine. A body without a result gives nil.
template <class Body>
Value run(const RoutineCall& call) {
    static_assert(std::is_empty_v<Body>);  // the body passed to Routine is not stored
    constexpr Body body{};
    const auto result = [&] {
        if constexpr (std::is_invocable_v<Body, const RoutineCall&>) {
            return body(call);
        } else {
            return body(call, call);
        }
    };
    if constexpr (std::is_void_v<decltype(result())>) {
        result();
        return {};
    } else {
        return to_value(result());
    }
}

struct Routine {
    // A body is a lambda without captures. It takes one or two of the references that a RoutineCall
    // converts to.
    template <class Body>
    constexpr Routine(std::string_view routine, std::string_view argument_list, Body)
        : name(routine), arguments(argument_list), call(run<Body>) {}

    std::string_view name;       // matched in any letter case
    std::string_view arguments;  // for people; optional ones in square brackets
    Value (*call)(const RoutineCall& call);
};

// The first argument as an end of a scope: 0 top, 1 bottom.
inline ScopeEnd scope_end(const CallArguments& arguments) {
    return arguments.whole(0) == 0 ? ScopeEnd::kTop : ScopeEnd::kBottom;
}

std::span<const Routine> library_routines();
std::span<const Routine> table_operations();

}  // namespace brenik::tools
