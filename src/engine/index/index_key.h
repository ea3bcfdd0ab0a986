// Index keys: how the result of a key expression becomes bytes that sort by plain comparison.
//
// Text is blank-padded or cut to the key length; numbers, dates and date-times are 8-byte doubles
// with the sign turned; a lone integer field is 4 bytes, a lone currency field 8, both with the top
// bit flipped; a logical is "T" or "F". Where a key may be NULL every key has one byte more in
// front: 0x80 for a value, and all bytes 0 for NULL.

#pragma once

#include <cstdint>
#include <string>

#include "engine/expression/expression.h"
#include "util/bytes.h"
#include "util/value.h"

namespace brenik::index {

inline constexpr std::size_t kMaxKeyLength = 240;

enum class KeyForm { kText, kDouble, kInteger, kCurrency, kLogical };

struct KeyFormat {
    KeyForm form = KeyForm::kText;
    expression::ResultType type = expression::ResultType::kCharacter;
    std::size_t length = 0;  // of the whole key, null prefix included
    bool null_prefix = false;

    std::size_t text_length() const { return length - (null_prefix ? 1 : 0); }
    Byte pad() const { return form == KeyForm::kText ? 0x20 : 0x00; }
};

// The format that a new tag over this expression gets; candidate tags have no null prefix. Throws
// ExpressionError when the key would be empty or too long.
KeyFormat natural_key_format(const expression::Expression& key, bool candidate);

// The format of an existing tag, whose header fixes length and null prefix; throws ExpressionError
// when the header and the expression cannot both be right.
KeyFormat existing_key_format(const expression::Expression& key, std::size_t key_length,
                              bool null_prefix);

// Writes the record's key into `out` (exactly `format.length` bytes).
void build_key(const expression::Expression& key, const KeyFormat& format,
               const record::RecordView& record, MutableBytes out);

// The bytes that a seek looks for: shorter than the key for text shorter than the key. A value of
// another kind than the key's is EngineFault kUnsuitableValue.
std::string seek_key(const KeyFormat& format, const Value& value);

}  // namespace brenik::index
