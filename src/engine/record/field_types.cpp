// The table of field types. A letter has one row per meaning that its width can give it.

#include "engine/record/field_types.h"

#include <algorithm>
#include <iterator>

namespace brenik::record {
namespace {

constexpr std::uint32_t kAnyWidth = 0xFFFFFFFF;

constexpr FieldType kFieldTypes[] = {
    {'0', 1, kAnyWidth, FieldForm::kNullFlags, ValueKind::kNil, 0},
    {'B', 8, 8, FieldForm::kDouble, ValueKind::kNumber, 0},
    {'B', 10, 10, FieldForm::kMemo, ValueKind::kMemo, ' '},
    {'C', 1, kAnyWidth, FieldForm::kText, ValueKind::kCharacter, ' '},
    {'D', 8, 8, FieldForm::kDate, ValueKind::kDate, ' '},
    {'F', 1, kAnyWidth, FieldForm::kDecimal, ValueKind::kNumber, ' '},
    {'G', 4, 4, FieldForm::kMemo, ValueKind::kMemo, 0},
    {'G', 10, 10, FieldForm::kMemo, ValueKind::kMemo, ' '},
    {'I', 4, 4, FieldForm::kInteger, ValueKind::kNumber, 0},
    {'L', 1, 1, FieldForm::kLogical, ValueKind::kLogical, ' '},
    {'M', 4, 4, FieldForm::kMemo, ValueKind::kMemo, 0},
    {'M', 10, 10, FieldForm::kMemo, ValueKind::kMemo, ' '},
    {'N', 1, kAnyWidth, FieldForm::kDecimal, ValueKind::kNumber, ' '},
    {'P', 4, 4, FieldForm::kMemo, ValueKind::kMemo, 0},
    {'P', 10, 10, FieldForm::kMemo, ValueKind::kMemo, ' '},
    {'Q', 1, 254, FieldForm::kVariableText, ValueKind::kCharacter, 0},
    {'T', 8, 8, FieldForm::kDateTime, ValueKind::kCharacter, 0},
    {'V', 1, 254, FieldForm::kVariableText, ValueKind::kCharacter, 0},
    {'W', 4, 4, FieldForm::kMemo, ValueKind::kMemo, 0},
    {'Y', 8, 8, FieldForm::kCurrency, ValueKind::kNumber, 0},
};

}  // namespace

const FieldType* find_field_type(char letter, std::uint32_t width) {
    const auto* found =
        std::find_if(std::begin(kFieldTypes), std::end(kFieldTypes), [&](const FieldType& type) {
            return type.letter == letter && width >= type.least_width &&
                   width <= type.greatest_width;
        });
    return found == std::end(kFieldTypes) ? nullptr : found;
}

}  // namespace brenik::record
