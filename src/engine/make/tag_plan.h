// A tag as it will be built, or as it is checked: what its header says, and the programs behind it.

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

// The plan of a tag that a header describes, its key length and null prefix kept. Throws
// ExpressionError when the expressions, or the header with them, cannot be used.
TagPlan plan_existing_tag(index::TagDescription description, const record::TableLayout& layout);

}  // namespace brenik::make
