// The public side of an expression: its text, its program and its evaluation.

#include "engine/expression/expression.h"

#include "engine/expression/compiler.h"

namespace brenik::expression {

struct Expression::Program {
    std::string text;  // literals in `code` point into it
    ExpressionProgram code;

    void require_whole(const record::RecordView& record) const {
        if (record.bytes.size() >= code.record_length) return;
        throw ExpressionError("a record of " + std::to_string(record.bytes.size()) +
                              " bytes where the table has " + std::to_string(code.record_length));
    }
};

Expression Expression::compile(std::string_view text, const record::TableLayout& layout,
                               std::optional<std::string_view> alias) {
    auto program = std::make_unique<Program>();
    program->text = text;
    program->code = ExpressionCompiler(program->text, layout, alias).compile();
    return Expression(std::move(program));
}

Expression::Expression(std::unique_ptr<Program> program) : program_(std::move(program)) {}
Expression::Expression(Expression&&) noexcept = default;
Expression& Expression::operator=(Expression&&) noexcept = default;
Expression::~Expression() = default;

ResultType Expression::type() const { return program_->code.type; }
std::size_t Expression::width() const { return program_->code.width; }
bool Expression::nullable() const { return program_->code.nullable; }
bool Expression::depends_on_settings() const { return program_->code.depends_on_settings; }
const std::string& Expression::text() const { return program_->text; }

const record::Field* Expression::lone_field() const {
    const std::optional<record::Field>& field = program_->code.lone_field;
    return field ? &*field : nullptr;
}

ExpressionResult Expression::evaluate(const record::RecordView& record) const {
    program_->require_whole(record);
    ExpressionProgram& code = program_->code;
    const Cell& cell = code.run(record);
    return {code.type, cell.is_null, cell.number != 0, cell.number, cell.text};
}

bool Expression::reads_same(const record::RecordView& one, const record::RecordView& other) const {
    program_->require_whole(one);
    program_->require_whole(other);
    return program_->code.reads_same(one.bytes, other.bytes);
}

bool Expression::is_true(const record::RecordView& record) const {
    const ExpressionResult result = evaluate(record);
    return result.type == ResultType::kLogical && !result.is_null && result.logical;
}

}  // namespace brenik::expression
