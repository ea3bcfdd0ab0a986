// Queries on a layout and its records.

#include "engine/record/table_layout.h"

#include <algorithm>

#include "util/runtime.h"

namespace brenik::record {

bool TableLayout::has_memos() const { return std::ranges::any_of(fields, &Field::is_memo); }

const Field* TableLayout::find(std::string_view name) const {
    const auto found = std::ranges::find_if(
        fields, [&](const Field& field) { return equal_ignoring_case(field.name, name); });
    return found == fields.end() ? nullptr : &*found;
}

bool is_null(const RecordView& record, const TableLayout& layout, const Field& field) {
    if (!field.null_bit || !layout.null_flags) return false;
    const Bytes flags = record.field(*layout.null_flags);
    return (flags[*field.null_bit / 8] >> (*field.null_bit % 8) & 1) != 0;
}

}  // namespace brenik::record
