// A tag to build or check: the contents of its header, and its compiled expressions.

#pragma once

#include <string>

#include "engine/index/order.h"
#include "engine/make/create_table.h"

namespace brenik::make {

struct TagPlan {
    index::TagDescription description;
    index::Order order;  // without a tree
};

// The plan of a new tag. Throws ExpressionError when the expressions cannot be used.
TagPlan plan_new_tag(const TagDefinition& tag, const record::TableLayout& layout);

// The plan of a tag that a header describes, with that header's key length and null prefix. Throws
// ExpressionError when the expressions, or their combination with the header, cannot be used.
TagPlan plan_existing_tag(index::TagDescription description, const record::TableLayout& layout);

}  // namespace brenik::make
