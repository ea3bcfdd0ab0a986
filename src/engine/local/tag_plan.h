// A tag as it will be built, or as it is checked: what its header says, and the programs behind it.

#pragma once

#include <string>

#include "engine/local/create.h"
#include "engine/local/table_orders.h"

namespace brenik::local {

struct TagPlan {
    TagDescription description;
    Order order;  // without a tree
};

// The plan of a new tag. Throws ExpressionError when the expressions cannot be used.
TagPlan plan_new_tag(const TagDefinition& tag, const TableLayout& layout);

// The plan of a tag that a header describes, its key length and null prefix kept. Throws
// ExpressionError when the expressions, or the header with them, cannot be used.
TagPlan plan_existing_tag(TagDescription description, const TableLayout& layout);

}  // namespace brenik::local
