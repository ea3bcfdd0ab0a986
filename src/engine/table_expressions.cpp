// Compiles, caches and evaluates the expressions of one table.

#include "engine/table_expressions.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>

#include "engine/record/code_page.h"
#include "engine/record/field_codec.h"
#include "util/runtime.h"

namespace brenik {
namespace {

// Cache bound: a caller that generates texts in a loop must not grow the cache for ever.
constexpr std::size_t kMostCompiled = 64;
constexpr Number kComputedNumber{0, kWholeNumberWidth + 3, 2};
constexpr double kMillisecondsPerDay = 86'400'000;

Value computed_number(double amount) {
    Number number = amount == std::floor(amount) ? Number{} : kComputedNumber;
    number.amount = amount;
    return number;
}

Value date_time_value(double moment) {
    const double day = std::floor(moment);
    const double ms =
        std::min(std::round((moment - day) * kMillisecondsPerDay), kMillisecondsPerDay - 1);
    return record::date_time_text(static_cast<std::int32_t>(day), static_cast<std::uint32_t>(ms));
}

Value value_of(const expression::ExpressionResult& result) {
    if (result.is_null) return {};
    switch (result.type) {
        case expression::ResultType::kCharacter:
            return result.text;
        case expression::ResultType::kNumber:
            return computed_number(result.number);
        case expression::ResultType::kDate:
            return Date(static_cast<std::int32_t>(result.number));
        case expression::ResultType::kDateTime:
            return date_time_value(result.number);
        case expression::ResultType::kLogical:
            return result.logical;
    }
    return {};
}

}  // namespace

std::string upper_in(const record::TableLayout& layout, const std::string& text) {
    const auto is_ascii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
    if (std::ranges::all_of(text, is_ascii)) return upper(text);
    record::CaseTable capitals{}, small{};
    if (!record::load_case_tables(layout.code_page, capitals, small)) {
        // An unknown code page folds case like a table without a code page mark.
        static_cast<void>(record::load_case_tables(0, capitals, small));
    }
    std::string changed = text;
    for (char& c : changed) c = capitals[static_cast<unsigned char>(c)];
    return changed;
}

expression::Expression TableExpressions::compile(const std::string& text,
                                                 const char* operation) const {
    try {
        return expression::Expression::compile(text, table_.layout(), alias_);
    } catch (const expression::ExpressionError& error) {
        throw EngineFault(FaultCode::kUnsupported, operation,
                          table_.path() + ": " + operation + " " + text + ": " + error.what());
    }
}

void TableExpressions::set_filter(const std::string& text) {
    if (text.empty()) {
        table_.set_filter({}, {});
    } else {
        const auto filter = std::make_shared<const expression::Expression>(compile(text, "filter"));
        if (filter->type() != expression::ResultType::kLogical) {
            throw EngineFault(FaultCode::kUnsupported, "filter",
                              table_.path() + ": filter " + text +
                                  ": at character 1: the expression is not logical");
        }
        table_.set_filter(
            [filter](const record::RecordView& record) { return filter->is_true(record); }, text);
    }
    filter_ = text;
}

Value TableExpressions::evaluate(const std::string& text) {
    auto known = compiled_.find(text);
    if (known == compiled_.end()) {
        expression::Expression made = compile(text, "expression");
        if (compiled_.size() >= kMostCompiled) compiled_.clear();
        known = compiled_.emplace(text, std::move(made)).first;
    }
    const expression::Expression& program = known->second;
    const record::Field* field = program.lone_field();
    const record::RecordView record = table_.record();
    // The field itself determines the width and decimals of its value.
    if (field != nullptr && program.type() != expression::ResultType::kCharacter) {
        return record::read_field(record, table_.layout(), *field);
    }
    return value_of(program.evaluate(record));
}

Value TableExpressions::key_value(std::size_t order) {
    const auto key =
        expression::Expression::compile(table_.order_description(order).key, table_.layout());
    return value_of(key.evaluate(table_.record()));
}

}  // namespace brenik
