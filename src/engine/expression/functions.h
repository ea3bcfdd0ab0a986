// The functions that an expression may call.

#pragma once

#include <span>
#include <string_view>

#include "engine/expression/program.h"

namespace brenik::expression {

// The longest result for these arguments; throws ExpressionError for a width that cannot be.
using WidthRule = std::size_t (*)(std::span<const Operand> arguments);

enum FunctionTrait : unsigned {
    kMakesText = 1,  // the result needs a slot of the arena
    kSeesNull = 2,
    kFoldsCase = 4,
    kFollowsDateForm = 8,  // with the required arguments alone the session's date form decides
};

struct FunctionRule {
    std::string_view name;
    // A letter for each argument's type: C N D T L, "*" any, "=" that of the argument before it,
    // "d" a date or date-time, "p" text or a number, "o" a number or a date.
    std::string_view parameters;
    std::size_t required = 0;
    char result = 'C';  // a type's letter, or the number of the argument that has it
    WidthRule width = nullptr;
    Routine routine = nullptr;
    unsigned traits = 0;

    bool has(FunctionTrait trait) const { return (traits & trait) != 0; }
};

// By full name, or by its first four letters or more; null when there is no such function.
const FunctionRule* find_function(std::string_view name);
bool suits(char parameter, ResultType type, ResultType type_before);

}  // namespace brenik::expression
