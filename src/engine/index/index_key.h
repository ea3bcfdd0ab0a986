// Index keys: the result of a key expression, encoded as bytes that sort by plain comparison.
//
// Text is blank-padded or cut to the key length. Numbers, dates and date-times are big-endian
// 8-byte doubles, with the top bit set or, if negative, all bits inverted. A lone integer field is
// 4 bytes and a lone currency field 8, both big-endian with the top bit flipped. A logical is "T"
// or "F". If a key may be NULL, every key has one more byte in front: 0x80 for a value; for NULL,
// all bytes are 0.

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

// The format of a new tag over this expression; candidate tags have no null prefix. Throws
// ExpressionError when the key would be empty or too long, or depends on the session's settings.
KeyFormat natural_key_format(const expression::Expression& key, bool candidate);

// The format of an existing tag, whose header fixes length and null prefix. Throws ExpressionError
// when the header and the expression contradict each other.
KeyFormat existing_key_format(const expression::Expression& key, std::size_t key_length,
                              bool null_prefix);

// Writes the record's key into `out` (exactly `format.length` bytes).
void build_key(const expression::Expression& key, const KeyFormat& format,
               const record::RecordView& record, MutableBytes out);

// The bytes that a seek searches for; text shorter than the key gives fewer bytes. A value of
// another kind than the key's is EngineFault kUnsuitableValue.
std::string seek_key(const KeyFormat& format, const Value& value);

}  // namespace brenik::index
