// Operators: one table row per pair of operand types.

#include "engine/expression/operators.h"

#include <algorithm>
#include <cmath>
#include <functional>

namespace brenik::expression {
namespace {

void set_number(Cell* result, double number) { *result = Cell{.number = number}; }

// Arithmetic without a finite result (division by zero, overflow) yields 0, so that every record
// has a key.
void set_finite(Cell* result, double number) {
    set_number(result, std::isfinite(number) ? number : 0);
}

void multiply(const Instruction&, const Run&, Cell* operands) {
    set_finite(operands, operands[0].number * operands[1].number);
}

void divide(const Instruction&, const Run&, Cell* operands) {
    const double divisor = operands[1].number;
    set_finite(operands, divisor == 0 ? 0 : operands[0].number / divisor);
}

void remainder_of(const Instruction&, const Run&, Cell* operands) {
    set_finite(operands, std::fmod(operands[0].number, operands[1].number));
}

void raise(const Instruction&, const Run&, Cell* operands) {
    set_finite(operands, std::pow(operands[0].number, operands[1].number));
}

void add(const Instruction&, const Run&, Cell* operands) {
    set_finite(operands, operands[0].number + operands[1].number);
}

void subtract(const Instruction&, const Run&, Cell* operands) {
    set_finite(operands, operands[0].number - operands[1].number);
}

// The empty date stays empty.
void move_date(Cell* result, double day, double days) {
    set_finite(result, day == 0 ? 0 : std::trunc(day + days));
}

void add_days(const Instruction&, const Run&, Cell* operands) {
    move_date(operands, operands[0].number, operands[1].number);
}

void add_to_days(const Instruction&, const Run&, Cell* operands) {
    move_date(operands, operands[1].number, operands[0].number);
}

void subtract_days(const Instruction&, const Run&, Cell* operands) {
    move_date(operands, operands[0].number, -operands[1].number);
}

void join(const Instruction& step, const Run& run, Cell* operands) {
    const std::string_view left = operands[0].text;
    const std::string_view right = operands[1].text;
    char* out = run.slot(step);
    std::copy(right.begin(), right.end(), std::copy(left.begin(), left.end(), out));
    *operands = Cell{.text = {out, left.size() + right.size()}};
}

// Moves the left side's trailing blanks to the end.
void join_closely(const Instruction& step, const Run& run, Cell* operands) {
    const std::string_view left = operands[0].text;
    const std::string_view right = operands[1].text;
    const std::size_t body = left.find_last_not_of(' ') + 1;
    char* out = run.slot(step);
    char* end = std::copy_n(left.begin(), body, out);
    end = std::copy(right.begin(), right.end(), end);
    std::fill_n(end, left.size() - body, ' ');
    *operands = Cell{.text = {out, left.size() + right.size()}};
}

void is_part(const Instruction&, const Run&, Cell* operands) {
    set_number(operands, operands[1].text.find(operands[0].text) != std::string_view::npos);
}

void both(const Instruction&, const Run&, Cell* operands) {
    const auto no = [](const Cell& cell) { return !cell.is_null && cell.number == 0; };
    const bool decided = no(operands[0]) || no(operands[1]);
    const bool unknown = operands[0].is_null || operands[1].is_null;
    *operands = Cell{.number = decided || unknown ? 0.0 : 1.0, .is_null = unknown && !decided};
}

void either(const Instruction&, const Run&, Cell* operands) {
    const auto yes = [](const Cell& cell) { return !cell.is_null && cell.number != 0; };
    const bool decided = yes(operands[0]) || yes(operands[1]);
    const bool unknown = operands[0].is_null || operands[1].is_null;
    *operands = Cell{.number = decided ? 1.0 : 0.0, .is_null = unknown && !decided};
}

template <class Relation>
void compare_numbers(const Instruction&, const Run&, Cell* operands) {
    set_number(operands, Relation{}(operands[0].number, operands[1].number));
}

// Compares text up to the length of the right side for every relation, so that exactly one of "<",
// "=" and ">" holds.
template <class Relation>
void compare_texts(const Instruction&, const Run&, Cell* operands) {
    const std::string_view right = operands[1].text;
    const int order = operands[0].text.substr(0, right.size()).compare(right);
    set_number(operands, Relation{}(order, 0));
}

void texts_equal_exactly(const Instruction&, const Run&, Cell* operands) {
    set_number(operands, operands[0].text == operands[1].text);
}

struct Precedence {
    std::string_view symbol;
    int value;
};

constexpr Precedence kPrecedences[] = {
    {"OR", 1}, {"AND", 2}, {"=", 4}, {"==", 4}, {"<>", 4}, {"<", 4}, {">", 4}, {"<=", 4},
    {">=", 4}, {"$", 4},   {"+", 5}, {"-", 5},  {"*", 6},  {"/", 6}, {"%", 6}, {"^", 7},
};

constexpr ResultType kC = ResultType::kCharacter;
constexpr ResultType kN = ResultType::kNumber;
constexpr ResultType kD = ResultType::kDate;
constexpr ResultType kL = ResultType::kLogical;

constexpr OperatorRule kOperators[] = {
    {"OR", kL, kL, kL, either, true},
    {"AND", kL, kL, kL, both, true},
    {"$", kC, kC, kL, is_part},
    {"+", kC, kC, kC, join},
    {"+", kN, kN, kN, add},
    {"+", kD, kN, kD, add_days},
    {"+", kN, kD, kD, add_to_days},
    {"-", kC, kC, kC, join_closely},
    {"-", kN, kN, kN, subtract},
    {"-", kD, kN, kD, subtract_days},
    {"-", kD, kD, kN, subtract},
    {"*", kN, kN, kN, multiply},
    {"/", kN, kN, kN, divide},
    {"%", kN, kN, kN, remainder_of},
    {"^", kN, kN, kN, raise},
    {"=", kC, kC, kL, compare_texts<std::equal_to<>>},
    {"==", kC, kC, kL, texts_equal_exactly},
    {"<>", kC, kC, kL, compare_texts<std::not_equal_to<>>},
    {"<", kC, kC, kL, compare_texts<std::less<>>},
    {">", kC, kC, kL, compare_texts<std::greater<>>},
    {"<=", kC, kC, kL, compare_texts<std::less_equal<>>},
    {">=", kC, kC, kL, compare_texts<std::greater_equal<>>},
    // These rows serve every type whose cells hold numbers.
    {"=", kN, kN, kL, compare_numbers<std::equal_to<>>},
    {"==", kN, kN, kL, compare_numbers<std::equal_to<>>},
    {"<>", kN, kN, kL, compare_numbers<std::not_equal_to<>>},
    {"<", kN, kN, kL, compare_numbers<std::less<>>},
    {">", kN, kN, kL, compare_numbers<std::greater<>>},
    {"<=", kN, kN, kL, compare_numbers<std::less_equal<>>},
    {">=", kN, kN, kL, compare_numbers<std::greater_equal<>>},
};

constexpr int kComparisonPrecedence = 4;

}  // namespace

int precedence_of(std::string_view symbol) {
    for (const Precedence& each : kPrecedences) {
        if (each.symbol == symbol) return each.value;
    }
    return 0;
}

const OperatorRule* find_operator(std::string_view symbol, ResultType left, ResultType right) {
    const bool same_number_cells = left == right && left != kC;
    if (same_number_cells && precedence_of(symbol) == kComparisonPrecedence) left = right = kN;
    for (const OperatorRule& each : kOperators) {
        if (each.symbol == symbol && each.left == left && each.right == right) return &each;
    }
    return nullptr;
}

void negate_number(const Instruction&, const Run&, Cell* operands) {
    set_number(operands, -operands[0].number);
}

void negate_logical(const Instruction&, const Run&, Cell* operands) {
    set_number(operands, operands[0].number == 0);
}

}  // namespace brenik::expression
