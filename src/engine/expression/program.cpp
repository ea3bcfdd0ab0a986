// Runs a compiled expression.

#include "engine/expression/program.h"

#include <algorithm>

namespace brenik::expression {
namespace {

bool any_null(const Cell* first, const Cell* last) {
    return std::any_of(first, last, [](const Cell& cell) { return cell.is_null; });
}

}  // namespace

const Cell& ExpressionProgram::run(const record::RecordView& record) {
    const Run context{record, *this};
    Cell* next = stack.data();
    for (const Instruction& step : steps) {
        Cell* operands = next - step.operands;
        if (nullable && !step.sees_null && any_null(operands, next)) {
            *operands = Cell{.is_null = true};
        } else {
            step.routine(step, context, operands);
        }
        next = operands + 1;
    }
    return stack.front();
}

bool ExpressionProgram::reads_same(Bytes one, Bytes other) const {
    return one[0] == other[0] && std::ranges::all_of(fields, [&](const FieldPlace& place) {
               return place.is_same(one, other);
           });
}

}  // namespace brenik::expression
