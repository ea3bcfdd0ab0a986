// Expressions over a table's fields: the filter, and values for whoever asks.

#include <algorithm>
#include <cmath>
#include <utility>

#include "engine/local/local_table.h"
#include "engine/record/field_codec.h"

namespace brenik::local {
namespace {

// More texts than this are no set of relations but somebody's loop.
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

expression::Expression LocalTable::compile(const std::string& text, const char* operation) const {
    try {
        return expression::Expression::compile(text, layout(), alias_);
    } catch (const expression::ExpressionError& error) {
        throw EngineFault(FaultCode::kUnsupported, operation,
                          file_->path() + ": " + operation + " " + text + ": " + error.what());
    }
}

void LocalTable::set_alias(const std::string& alias) {
    alias_ = alias;
    compiled_.clear();
}

void LocalTable::set_filter(const std::string& expression) {
    require_open("filter");
    if (expression.empty()) return filter_.reset();
    expression::Expression filter = compile(expression, "filter");
    if (filter.type() != expression::ResultType::kLogical) {
        throw EngineFault(FaultCode::kUnsupported, "filter",
                          file_->path() + ": filter " + expression +
                              ": at character 1: the expression is not logical");
    }
    filter_ = std::move(filter);
}

std::string LocalTable::upper(const std::string& text) const {
    std::string changed = text;
    for (char& c : changed) c = capitals_[static_cast<unsigned char>(c)];
    return changed;
}

Value LocalTable::evaluate(const std::string& expression) {
    require_open("evaluate");
    auto known = compiled_.find(expression);
    if (known == compiled_.end()) {
        expression::Expression made = compile(expression, "expression");
        if (compiled_.size() >= kMostCompiled) compiled_.clear();
        known = compiled_.emplace(expression, std::move(made)).first;
    }
    const expression::Expression& program = known->second;
    const record::Field* field = program.lone_field();
    // A field's own value knows its width and decimals.
    if (field != nullptr && program.type() != expression::ResultType::kCharacter) {
        return record::read_field(view(), layout(), *field);
    }
    return value_of(program.evaluate(view()));
}

Value LocalTable::key_value(std::size_t order) {
    if (order == 0 || order > order_count()) refuse_order(order, "key value");
    return value_of(orders_->attached(order).key.evaluate(view()));
}

}  // namespace brenik::local
