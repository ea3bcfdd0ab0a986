// Key, condition and filter expressions, compiled once and evaluated without allocation.
//
// The text is parsed against a table's layout, checked for types, and compiled to a short program
// for a stack machine. Texts live in an arena whose size is fixed at compile time. The same program
// serves index keys, FOR conditions and filters. It knows the functions and operators that index
// expressions of these formats may use; anything that reads outside the record is refused.

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "engine/record/table_layout.h"

namespace brenik::expression {

// Why an expression cannot be used. The message gives the position and the reason, not the file.
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

// Text points into the expression's arena or the record, and is valid until the next evaluation.
struct ExpressionResult {
    ResultType type = ResultType::kLogical;
    bool is_null = false;
    bool logical = false;
    double number = 0;  // number; day number of a date (0: empty); day and fraction of a time
    std::string_view text;
};

class Expression {
  public:
    // The deletion mark and the record number come from the record itself. With `alias`, fields may
    // be qualified by that alias and by the names of the current table; without it, as in an index
    // file, by any table's alias. Throws ExpressionError.
    static Expression compile(std::string_view text, const record::TableLayout& layout,
                              std::optional<std::string_view> alias = {});

    Expression(Expression&&) noexcept;
    Expression& operator=(Expression&&) noexcept;
    ~Expression();

    ResultType type() const;
    // The greatest width of a text result; trimming functions count with their full width.
    std::size_t width() const;
    // True when a field of the expression may be NULL.
    bool nullable() const;
    // True when the result depends on the session's date form (DTOC). That is allowed in conditions
    // and filters, but not in a key.
    bool depends_on_settings() const;
    // The field if the whole expression is a single field, otherwise null.
    const record::Field* lone_field() const;
    const std::string& text() const;

    ExpressionResult evaluate(const record::RecordView& record) const;
    // True only for a logical result that is true; NULL is not true.
    bool is_true(const record::RecordView& record) const;
    // True when two versions of one record agree in every byte that the expression may read, and so
    // in its result. Much cheaper than two evaluations.
    bool reads_same(const record::RecordView& one, const record::RecordView& other) const;

  private:
    struct Program;
    explicit Expression(std::unique_ptr<Program> program);
    std::unique_ptr<Program> program_;
};

}  // namespace brenik::expression
