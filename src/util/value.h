// The dynamically typed value of fields, settings and arguments.
//
// A Value is a small tagged union; copies of an array share it. Text is a string of bytes, 0
// included, and is never recoded. A number carries its display width and decimals, because its
// default text form depends on both.

#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "util/date.h"

namespace brenik {

class Value;

// The letter is the type code wherever the system shows one.
enum class ValueKind : char {
    kNil = 'U',
    kLogical = 'L',
    kNumber = 'N',
    kCharacter = 'C',
    kMemo = 'M',
    kDate = 'D',
    kArray = 'A',
};

inline constexpr int kWholeNumberWidth = 10;

struct Number {
    double amount = 0;
    int width = kWholeNumberWidth;  // characters of the default text form
    int decimals = 0;

    bool operator==(const Number& other) const { return amount == other.amount; }
};

struct Memo {
    std::string text;
    bool operator==(const Memo&) const = default;
};

using Array = std::vector<Value>;
using ArrayReference = std::shared_ptr<Array>;

class Value {
  public:
    Value() = default;  // nil
    Value(bool logical) : content_(logical) {}
    Value(int whole) : content_(Number{static_cast<double>(whole)}) {}
    Value(std::int64_t whole) : content_(Number{static_cast<double>(whole)}) {}
    Value(std::uint32_t whole) : content_(Number{static_cast<double>(whole)}) {}
    Value(Number number) : content_(number) {}
    Value(std::string text) : content_(std::move(text)) {}
    Value(std::string_view text) : content_(std::string(text)) {}
    Value(const char* text) : content_(std::string(text)) {}
    Value(Memo memo) : content_(std::move(memo)) {}
    Value(Date date) : content_(date) {}
    Value(ArrayReference array) : content_(std::move(array)) {}
    static Value array(Array elements);

    ValueKind kind() const;
    char type_code() const { return static_cast<char>(kind()); }
    bool is_nil() const { return std::holds_alternative<std::monostate>(content_); }
    bool is_text() const;  // character or memo

    // The content; for another kind the neutral value: false, 0, empty text, the empty date, a null
    // reference.
    bool logical() const;
    double number() const;
    std::int64_t whole() const;  // number() truncated toward zero and kept within 64 bits
    const std::string& text() const;
    Date date() const;
    const ArrayReference& array() const;
    // The number with its width and decimals; for another kind 0 with the whole-number width.
    Number number_form() const;

    // True for nil, false, 0, the empty date, text of only blanks, tabs, CR and LF, and an array
    // without elements. Bytes of value 0 are not blank.
    bool empty() const;

    // Exact comparison: same kind (memo and character count as one) and same content. Texts must
    // have the same length. Numbers compare by amount, arrays by identity.
    bool exactly_equals(const Value& other) const;

  private:
    std::variant<std::monostate, bool, Number, std::string, Memo, Date, ArrayReference> content_;
};

}  // namespace brenik
