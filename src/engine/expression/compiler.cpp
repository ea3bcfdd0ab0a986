// An operator-precedence parser that emits postfix instructions in the same pass.

#include "engine/expression/compiler.h"

#include <algorithm>
#include <iterator>

#include "engine/expression/fields.h"
#include "engine/expression/operators.h"
#include "engine/record/code_page.h"
#include "util/runtime.h"
#include "util/suggestion.h"

namespace brenik::expression {
namespace {

constexpr std::size_t kMaxTextLength = 16384;
constexpr std::size_t kMaxArenaSize = std::size_t{1024} * 1024;
constexpr int kMaxNesting = 100;

// These aliases denote variables of a program, not the table's fields.
constexpr std::string_view kVariableAliases[] = {"M", "MEMVAR"};
// These denote the table of the current record, whatever its alias.
constexpr std::string_view kCurrentTable[] = {"FIELD", "_FIELD"};

template <std::size_t size>
bool is_one_of(const std::string_view (&names)[size], std::string_view name) {
    return std::any_of(std::begin(names), std::end(names),
                       [&](std::string_view each) { return equal_ignoring_case(each, name); });
}

std::string type_name(ResultType type) {
    switch (type) {
        case ResultType::kCharacter:
            return "text";
        case ResultType::kNumber:
            return "a number";
        case ResultType::kDate:
            return "a date";
        case ResultType::kDateTime:
            return "a date-time";
        case ResultType::kLogical:
            return "a logical";
    }
    return "nothing";
}

void push_literal(const Instruction& step, const Run& run, Cell* operands) {
    *operands = run.program.literals[step.index];
}

// "^YYYY-MM-DD" or "MM/DD/YY"; blanks and separators alone are the empty date.
Date literal_date(const Token& token) {
    if (token.text.find_first_not_of(" ^-/.") == std::string_view::npos) return Date();
    const std::string_view text = trim_both(token.text);
    Date date;
    if (text.size() == 11 && text.front() == '^' && text[5] == text[8] &&
        std::string_view("-/.").find(text[5]) != std::string_view::npos) {
        date = Date::from_ymd(std::string(text.substr(1, 4)) + std::string(text.substr(6, 2)) +
                              std::string(text.substr(9, 2)));
    } else {
        date = Date::from_mdy(text);
    }
    if (date.empty()) refuse_expression(token.position, "no such date " + quoted(token.text));
    return date;
}

ResultType result_type(const FunctionRule& rule, const std::vector<Operand>& arguments) {
    if (rule.result < '1' || rule.result > '9') return static_cast<ResultType>(rule.result);
    return arguments[static_cast<std::size_t>(rule.result - '1')].type;
}

}  // namespace

// Counts one level of nesting while it lives.
class ExpressionCompiler::Nesting {
  public:
    explicit Nesting(ExpressionCompiler& compiler) : depth_(compiler.depth_) {
        if (++depth_ > kMaxNesting) {
            refuse_expression(compiler.token_.position, "nested too deeply");
        }
    }
    ~Nesting() { --depth_; }
    Nesting(const Nesting&) = delete;
    Nesting& operator=(const Nesting&) = delete;

  private:
    int& depth_;
};

ExpressionCompiler::ExpressionCompiler(std::string_view text, const record::TableLayout& layout,
                                       std::optional<std::string_view> alias)
    : layout_(layout),
      alias_(alias),
      lexer_(text),
      has_case_tables_(
          record::load_case_tables(layout.code_page, program_.upper_case, program_.lower_case)) {
    if (text.size() > kMaxTextLength) {
        throw ExpressionError("the expression is longer than " + std::to_string(kMaxTextLength) +
                              " characters");
    }
}

ExpressionProgram ExpressionCompiler::compile() {
    take();
    const Operand result = parse(kLoosest);
    if (token_.kind != TokenKind::kEnd) {
        refuse_expression(token_.position,
                          "the expression should end before " + quoted(token_.text));
    }
    if (program_.steps.size() > 1) program_.lone_field.reset();
    program_.type = result.type;
    program_.width = result.width;
    program_.record_length = layout_.record_length;
    program_.stack.resize(deepest_stack_);
    program_.arena.resize(arena_size_);
    return std::move(program_);
}

Token ExpressionCompiler::take() {
    const Token taken = token_;
    token_ = lexer_.next();
    return taken;
}

void ExpressionCompiler::expect(std::string_view symbol) {
    if (!token_.is(symbol)) {
        refuse_expression(token_.position, "expected " + quoted(symbol));
    }
    take();
}

Operand ExpressionCompiler::parse(int loosest) {
    Operand left = parse_operand();
    while (token_.kind == TokenKind::kSymbol) {
        const int precedence = precedence_of(token_.text);
        if (precedence == 0 || precedence < loosest) break;
        const Token symbol = take();
        const Operand right = parse(precedence + 1);
        left = emit_binary(symbol, left, right);
    }
    return left;
}

Operand ExpressionCompiler::parse_operand() {
    const Nesting nesting(*this);
    if (token_.is("NOT")) {
        const Token symbol = take();
        const Operand operand = parse(kNotPrecedence + 1);
        return emit_prefix(symbol, operand, ResultType::kLogical, negate_logical);
    }
    if (token_.is("-") || token_.is("+")) return parse_sign();
    if (token_.is("(")) {
        take();
        const Operand inner = parse(kLoosest);
        expect(")");
        return inner;
    }
    return token_.kind == TokenKind::kName ? parse_name() : parse_literal();
}

Operand ExpressionCompiler::parse_sign() {
    const Token symbol = take();
    const Operand operand = parse_operand();
    if (symbol.text == "-") {
        Operand result = emit_prefix(symbol, operand, ResultType::kNumber, negate_number);
        if (operand.constant) result.constant = -*operand.constant;
        return result;
    }
    if (operand.type != ResultType::kNumber) {
        refuse_expression(symbol.position, "a sign before " + type_name(operand.type));
    }
    return operand;
}

Operand ExpressionCompiler::parse_literal() {
    const Token token = take();
    switch (token.kind) {
        case TokenKind::kText:
            return emit_literal({.text = token.text},
                                {ResultType::kCharacter, token.text.size(), {}});
        case TokenKind::kNumber:
            return emit_literal({.number = token.number}, {ResultType::kNumber, 0, token.number});
        case TokenKind::kLogical:
            return emit_literal({.number = token.number}, {ResultType::kLogical, 0, {}});
        case TokenKind::kDate:
            return emit_literal({.number = static_cast<double>(literal_date(token).julian_day())},
                                {ResultType::kDate, 0, {}});
        case TokenKind::kEnd:
            refuse_expression(token.position, "the expression ends too early");
        default:
            refuse_expression(token.position, "unexpected " + quoted(token.text));
    }
}

Operand ExpressionCompiler::parse_name() {
    Token name = take();
    if (token_.is("(")) return parse_call(name);
    if (!token_.is("->") && !token_.is(".")) return parse_field(name);
    check_alias(name);
    take();
    name = take();
    if (name.kind != TokenKind::kName) {
        refuse_expression(name.position, "expected a field after the alias");
    }
    return parse_field(name);
}

void ExpressionCompiler::check_alias(const Token& alias) const {
    if (is_one_of(kVariableAliases, alias.text)) {
        refuse_expression(alias.position, "variables lie outside the record");
    }
    if (!alias_ || equal_ignoring_case(*alias_, alias.text)) return;
    if (is_one_of(kCurrentTable, alias.text)) return;
    refuse_expression(alias.position, quoted(alias.text) + " is not this table's alias");
}

Operand ExpressionCompiler::parse_field(const Token& name) {
    const record::Field* field = layout_.find(name.text);
    if (field == nullptr) {
        std::vector<std::string> names;
        for (const record::Field& each : layout_.fields) names.push_back(each.name);
        refuse_expression(name.position,
                          "no field " + quoted(name.text) + did_you_mean(name.text, names));
    }
    FieldLoad load;
    try {
        load = field_load(*field, layout_);
    } catch (const ExpressionError& error) {
        refuse_expression(name.position, error.what());
    }
    program_.nullable = program_.nullable || load.place.null.mask != 0;
    program_.lone_field = *field;
    emit({.routine = load.routine, .index = static_cast<std::uint32_t>(program_.fields.size())});
    program_.fields.push_back(load.place);
    return load.operand;
}

Operand ExpressionCompiler::parse_call(const Token& name) {
    const FunctionRule* rule = find_function(name.text);
    if (rule == nullptr) refuse_expression(name.position, "no function " + quoted(name.text));
    if (rule->has(kFoldsCase) && !has_case_tables_) {
        refuse_expression(name.position, "the letters of code page mark " +
                                             std::to_string(layout_.code_page) + " are not known");
    }
    const std::vector<Operand> arguments = parse_arguments(*rule, name);
    check_arguments(*rule, arguments, name);
    Operand result{result_type(*rule, arguments), 0, {}};
    try {
        result.width = rule->width(arguments);
    } catch (const ExpressionError& error) {
        refuse_expression(name.position, std::string(rule->name) + ": " + error.what());
    }
    if (rule->has(kFollowsDateForm) && arguments.size() == rule->required) {
        program_.depends_on_settings = true;
    }
    emit({.routine = rule->routine,
          .operands = static_cast<std::uint8_t>(arguments.size()),
          .sees_null = rule->has(kSeesNull),
          .operand_type = arguments.empty() ? ResultType::kLogical : arguments.front().type,
          .slot = rule->has(kMakesText) ? new_slot(result.width, name.position) : 0});
    return result;
}

std::vector<Operand> ExpressionCompiler::parse_arguments(const FunctionRule& rule,
                                                         const Token& name) {
    std::vector<Operand> arguments;
    expect("(");
    while (!token_.is(")")) {
        if (!arguments.empty()) expect(",");
        if (arguments.size() == rule.parameters.size()) {
            refuse_expression(name.position, std::string(rule.name) + " takes fewer arguments");
        }
        arguments.push_back(parse(kLoosest));
    }
    take();
    return arguments;
}

void ExpressionCompiler::check_arguments(const FunctionRule& rule,
                                         const std::vector<Operand>& arguments,
                                         const Token& name) const {
    const std::string function(rule.name);
    if (arguments.size() < rule.required) {
        refuse_expression(name.position, function + " needs more arguments");
    }
    ResultType before = ResultType::kLogical;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const ResultType type = arguments[i].type;
        if (!suits(rule.parameters[i], type, before)) {
            refuse_expression(name.position, function + ": argument " + std::to_string(i + 1) +
                                                 " cannot be " + type_name(type));
        }
        before = type;
    }
}

Operand ExpressionCompiler::emit_binary(const Token& symbol, const Operand& left,
                                        const Operand& right) {
    const OperatorRule* rule = find_operator(symbol.text, left.type, right.type);
    if (rule == nullptr) {
        refuse_expression(symbol.position, quoted(symbol.text) + " cannot stand between " +
                                               type_name(left.type) + " and " +
                                               type_name(right.type));
    }
    Operand result{rule->result, 0, {}};
    Instruction step{.routine = rule->routine, .operands = 2, .sees_null = rule->sees_null};
    if (rule->result == ResultType::kCharacter) {
        result.width = left.width + right.width;
        step.slot = new_slot(result.width, symbol.position);
    }
    if (left.constant && right.constant && rule->result == ResultType::kNumber) {
        Cell cells[] = {{.number = *left.constant}, {.number = *right.constant}};
        rule->routine(step, Run{record::RecordView{}, program_}, cells);
        result.constant = cells[0].number;
    }
    emit(step);
    return result;
}

Operand ExpressionCompiler::emit_prefix(const Token& symbol, const Operand& operand,
                                        ResultType wanted, Routine routine) {
    if (operand.type != wanted) {
        refuse_expression(symbol.position,
                          quoted(symbol.text) + " cannot stand before " + type_name(operand.type));
    }
    emit({.routine = routine, .operands = 1});
    return {wanted, 0, {}};
}

Operand ExpressionCompiler::emit_literal(Cell value, const Operand& operand) {
    emit({.routine = push_literal, .index = static_cast<std::uint32_t>(program_.literals.size())});
    program_.literals.push_back(value);
    return operand;
}

void ExpressionCompiler::emit(const Instruction& step) {
    program_.steps.push_back(step);
    stacked_ = stacked_ + 1 - step.operands;
    deepest_stack_ = std::max(deepest_stack_, stacked_);
}

std::uint32_t ExpressionCompiler::new_slot(std::size_t width, std::size_t position) {
    if (width > kMaxArenaSize - arena_size_) {
        refuse_expression(position, "the texts of the expression are too wide");
    }
    const std::size_t slot = arena_size_;
    arena_size_ += width;
    return static_cast<std::uint32_t>(slot);
}

}  // namespace brenik::expression
