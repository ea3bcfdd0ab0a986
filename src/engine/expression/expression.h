// Key, condition and filter expressions: one compiler, one small program, no allocation to run it.
//
// The text is parsed once against a table's layout, checked for types, and turned into a short
// program for a stack machine whose texts live in an arena sized at compile time. The same program
// serves index keys, FOR conditions and filters. Functions and operators are those that index
// expressions of these formats may hold; anything that reads outside the record is refused.

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "engine/record/table_layout.h"

namespace brenik::expression {

// Why an expression cannot be used; the message names the place and the reason, not the file.
class ExpressionError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

enum class ResultType : char {
    kCharacter = 'C',
    kNumber = 'N',
    kDate = 'D',
    kDateTime = 'T',
    kLogical = 'L',
};

// A result. Text points into the expression's arena (or the record) and is valid until the next
// evaluation.
struct ExpressionResult {
    ResultType type = ResultType::kLogical;
    bool is_null = false;
    bool logical = false;
    double number = 0;  // numbers; Julian day numbers of dates (0 empty); day + fraction of times
    std::string_view text;
};

class Expression {
  public:
    // `deleted` and `record number` come from the record itself. With `alias`, fields may be called
    // by that alias and by the names that mean the current table; without it, as in an index file,
    // by any alias. Throws ExpressionError.
    static Expression compile(std::string_view text, const record::TableLayout& layout,
                              std::optional<std::string_view> alias = {});

    Expression(Expression&&) noexcept;
    Expression& operator=(Expression&&) noexcept;
    ~Expression();

    ResultType type() const;
    // Width of a text result on a blank record, trimming functions counted in full.
    std::size_t width() const;
    // True when a field of the expression may be NULL.
    bool nullable() const;
    // True when the session's date form decides the result (DTOC): allowed in conditions and
    // filters, never in a key.
    bool depends_on_settings() const;
    // The field when the whole expression is one field and nothing else.
    const record::Field* lone_field() const;
    const std::string& text() const;

    ExpressionResult evaluate(const record::RecordView& record) const;
    // True only for a logical result that is true; NULL is not true.
    bool is_true(const record::RecordView& record) const;

  private:
    struct Program;
    explicit Expression(std::unique_ptr<Program> program);
    std::unique_ptr<Program> program_;
};

}  // namespace brenik::expression
