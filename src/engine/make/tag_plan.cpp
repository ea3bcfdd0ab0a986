// Compiles the expressions of a tag.

#include "engine/make/tag_plan.h"

#include <utility>

#include "util/runtime.h"

namespace brenik::make {
namespace {

std::optional<expression::Expression> compile_condition(const std::string& text,
                                                        const record::TableLayout& layout) {
    if (text.empty()) return std::nullopt;
    expression::Expression condition = expression::Expression::compile(text, layout);
    if (condition.type() != expression::ResultType::kLogical) {
        throw expression::ExpressionError("the condition " + text + " is not logical");
    }
    return condition;
}

}  // namespace

TagPlan plan_new_tag(const TagDefinition& tag, const record::TableLayout& layout) {
    expression::Expression key = expression::Expression::compile(tag.key, layout);
    const index::KeyFormat format = index::natural_key_format(key, tag.candidate);
    index::TagDescription description;
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

TagPlan plan_existing_tag(index::TagDescription description, const record::TableLayout& layout) {
    if (!description.unsupported.empty())
        throw expression::ExpressionError(description.unsupported);
    expression::Expression key = expression::Expression::compile(description.key, layout);
    const index::KeyFormat format =
        index::existing_key_format(key, description.key_length, description.nullable);
    description.pad = format.pad();
    std::optional<expression::Expression> condition =
        compile_condition(description.condition, layout);
    return {std::move(description), {nullptr, std::move(key), std::move(condition), format}};
}

}  // namespace brenik::make
