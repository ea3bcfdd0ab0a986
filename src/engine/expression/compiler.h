// Compiles an expression's text to its program.

#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "engine/expression/functions.h"
#include "engine/expression/lexer.h"
#include "engine/expression/program.h"

namespace brenik::expression {

// Parses the text and emits the program in one pass. Text length, nesting and arena are bounded, so
// that no text can exhaust memory or stack. The text must outlive the program, whose literals point
// into it. `alias` is as in Expression::compile().
class ExpressionCompiler {
  public:
    ExpressionCompiler(std::string_view text, const record::TableLayout& layout,
                       std::optional<std::string_view> alias);
    // May be called once per compiler. Throws ExpressionError.
    ExpressionProgram compile();

  private:
    class Nesting;

    Operand parse(int loosest);
    Operand parse_operand();
    Operand parse_sign();
    Operand parse_literal();
    Operand parse_name();
    void check_alias(const Token& alias) const;
    Operand parse_field(const Token& name);
    Operand parse_call(const Token& name);
    std::vector<Operand> parse_arguments(const FunctionRule& rule, const Token& name);
    void check_arguments(const FunctionRule& rule, const std::vector<Operand>& arguments,
                         const Token& name) const;
    Operand emit_binary(const Token& symbol, const Operand& left, const Operand& right);
    Operand emit_prefix(const Token& symbol, const Operand& operand, ResultType wanted,
                        Routine routine);
    Operand emit_literal(Cell value, const Operand& operand);
    void emit(const Instruction& step);
    std::uint32_t new_slot(std::size_t width, std::size_t position);
    Token take();
    void expect(std::string_view symbol);

    const record::TableLayout& layout_;
    std::optional<std::string_view> alias_;
    ExpressionLexer lexer_;
    Token token_;
    ExpressionProgram program_;
    std::size_t arena_size_ = 0;
    std::size_t stacked_ = 0;
    std::size_t deepest_stack_ = 0;
    int depth_ = 0;
    bool has_case_tables_;
};

}  // namespace brenik::expression
