// The field types, one row per type: what a table's header may declare, and what the field holds.
//
// Header checks, blank records, values, memos and expressions consult this table. A new field type
// is one row here. If it stores its values in a new way, it also needs a FieldForm with its case in
// field_codec and expression/fields.

#pragma once

#include <cstdint>

#include "util/bytes.h"
#include "util/value.h"

namespace brenik::record {

// How the record stores the value.
enum class FieldForm {
    kText,          // padded with blanks
    kVariableText,  // length in its last byte if a bit of the null flags is set
    kDecimal,       // a number in ASCII, right-aligned
    kDate,          // YYYYMMDD
    kLogical,       // one letter
    kInteger,       // 32 bits, signed
    kDouble,        // IEEE, 64 bits
    kCurrency,      // 64 bits, signed, in ten-thousandths
    kDateTime,      // Julian day number, then milliseconds since midnight, 32 bits each
    kMemo,          // number of the memo's first block: 32 bits, or ten digits
    kNullFlags,     // the column of null and length bits
};

struct FieldType {
    char letter;
    std::uint32_t least_width;
    std::uint32_t greatest_width;
    FieldForm form;
    ValueKind value;
    Byte blank;  // fills an empty field

    bool is_memo() const { return form == FieldForm::kMemo; }
};

// The type with this letter that may have this width; null when there is none.
const FieldType* find_field_type(char letter, std::uint32_t width);

}  // namespace brenik::record
