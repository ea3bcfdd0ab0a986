// Compiling the expressions of a tag.

#include "engine/local/tag_plan.h"

#include <utility>

#include "util/runtime.h"

namespace brenik::local {
namespace {

std::optional<Expression> compile_condition(const std::string& text, const TableLayout& layout) {
    if (text.empty()) return std::nullopt;
    Expression condition = Expression::compile(text, layout);
    if (condition.type() != ResultType::kLogical) {
        throw ExpressionError("the condition " + text + " is not logical");
    }
    return condition;
}

}  // namespace

TagPlan plan_new_tag(const TagDefinition& tag, const TableLayout& layout) {
    Expression key = Expression::compile(tag.key, layout);
    const KeyFormat format = natural_key_format(key, tag.candidate);
    TagDescription description;
    description.name = upper(tag.name);
    description.key = tag.key;
    description.condition = tag.condition;
    description.key_length = format.length;
    description.pad = format.pad();
    description.unique = tag.unique;
    description.candidate = tag.candidate;
    description.nullable = format.null_prefix;
    description.descending = tag.descending;
    return {std::move(description),
            {nullptr, std::move(key), compile_condition(tag.condition, layout), format}};
}

TagPlan plan_existing_tag(TagDescription description, const TableLayout& layout) {
    if (!description.unsupported.empty()) throw ExpressionError(description.unsupported);
    Expression key = Expression::compile(description.key, layout);
    const KeyFormat format = existing_key_format(key, description.key_length, description.nullable);
    description.pad = format.pad();
    std::optional<Expression> condition = compile_condition(description.condition, layout);
    return {std::move(description), {nullptr, std::move(key), std::move(condition), format}};
}

}  // namespace brenik::local
