// The operators of expressions: precedence, operand types and what they do.

#pragma once

#include <string_view>

#include "engine/expression/program.h"

namespace brenik::expression {

// Looser operators have smaller numbers. All associate to the left; the sign binds tightest.
inline constexpr int kLoosest = 1;
inline constexpr int kNotPrecedence = 3;

// 0 when the symbol is not a binary operator.
int precedence_of(std::string_view symbol);

struct OperatorRule {
    std::string_view symbol;
    ResultType left;
    ResultType right;
    ResultType result;
    Routine routine;
    bool sees_null = false;
};

// Null when the operator does not accept these types.
const OperatorRule* find_operator(std::string_view symbol, ResultType left, ResultType right);

void negate_number(const Instruction& step, const Run& run, Cell* operands);
void negate_logical(const Instruction& step, const Run& run, Cell* operands);

}  // namespace brenik::expression
