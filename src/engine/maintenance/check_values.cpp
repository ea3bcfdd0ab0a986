// Words what stored_value() finds.

#include "engine/maintenance/check_values.h"

#include <algorithm>

namespace brenik::maintenance {
namespace {

using record::FieldForm;
using record::StoredValue;

struct Wording {
    StoredValue state;
    const char* kind;
    const char* what;
};

constexpr Wording kWordings[] = {
    {StoredValue::kOverflow, "number-overflow",
     "the number was too wide for its field, which holds asterisks"},
    {StoredValue::kUnreadableNumber, "number-unreadable", "the field holds text that is no number"},
    {StoredValue::kImpossibleDate, "date-impossible",
     "the field holds a date or time that does not exist"},
    {StoredValue::kUnreadableLogical, "logical-unreadable",
     "the field holds neither true nor false"},
};

bool may_be_unreadable(const record::Field& field) {
    const FieldForm form = field.kind->form;
    return form == FieldForm::kDecimal || form == FieldForm::kDate ||
           form == FieldForm::kDateTime || form == FieldForm::kLogical;
}

}  // namespace

ValueCheck::ValueCheck(const record::TableLayout& layout, Read read, const Reporter& report)
    : layout_(layout), read_(std::move(read)), report_(report) {
    for (const record::Field& field : layout.fields) {
        if (may_be_unreadable(field)) fields_.push_back(&field);
    }
}

void ValueCheck::check(const record::RecordView& record) const {
    if (record.deleted()) return;
    for (const record::Field* field : fields_) {
        const StoredValue state = record::stored_value(record, layout_, *field);
        const auto* wording = std::ranges::find(kWordings, state, &Wording::state);
        if (wording == std::end(kWordings)) continue;
        // A program may be writing the record just now.
        const std::vector<Byte> now = read_(record.number);
        if (now.empty() || record::stored_value({now, record.number}, layout_, *field) != state)
            continue;
        report_.note(wording->kind, Remedy::kByHand, at_record(record.number, field->name),
                     wording->what);
    }
}

}  // namespace brenik::maintenance
