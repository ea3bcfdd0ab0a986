// The functions that an expression may call.

#pragma once

#include <span>
#include <string_view>

#include "engine/expression/program.h"

namespace brenik::expression {

// The greatest width of the result for these arguments. Throws ExpressionError for an impossible
// width.
using WidthRule = std::size_t (*)(std::span<const Operand> arguments);

enum FunctionTrait : unsigned {
    kMakesText = 1,  // the result needs a slot of the arena
    kSeesNull = 2,
    kFoldsCase = 4,
    kFollowsDateForm = 8,  // with the required arguments only, the result depends on the date form
};

struct FunctionRule {
    std::string_view name;
    // One letter per argument: a type C N D T L, "*" any type, "=" the type of the previous
    // argument, "d" a date or date-time, "p" text or a number, "o" a number or a date.
    std::string_view parameters;
    std::size_t required = 0;
    char result = 'C';  // a type letter, or the number of the argument whose type it takes
    WidthRule width = nullptr;
    Routine routine = nullptr;
    unsigned traits = 0;

    bool has(FunctionTrait trait) const { return (traits & trait) != 0; }
};

// Finds a function by its full name or an abbreviation of at least four letters; null if there is
// none.
const FunctionRule* find_function(std::string_view name);
bool suits(char parameter, ResultType type, ResultType type_before);

}  // namespace brenik::expression
