// Accessors whose answer depends on the kind of the value.

#include "util/value.h"

#include <array>
#include <limits>

namespace brenik {

Value Value::array(Array elements) { return Value(std::make_shared<Array>(std::move(elements))); }

ValueKind Value::kind() const {
    constexpr std::array kKinds = {ValueKind::kNil,       ValueKind::kLogical, ValueKind::kNumber,
                                   ValueKind::kCharacter, ValueKind::kMemo,    ValueKind::kDate,
                                   ValueKind::kArray};
    static_assert(kKinds.size() == std::variant_size_v<decltype(content_)>);
    return kKinds[content_.index()];
}

bool Value::is_text() const {
    return std::holds_alternative<std::string>(content_) || std::holds_alternative<Memo>(content_);
}

bool Value::logical() const {
    const bool* content = std::get_if<bool>(&content_);
    return content != nullptr && *content;
}

double Value::number() const { return number_form().amount; }

std::int64_t Value::whole() const {
    using Limits = std::numeric_limits<std::int64_t>;
    constexpr double kBeyond = 9223372036854775808.0;  // 2 to the power of 63
    const double amount = number();
    if (amount != amount) return 0;
    if (amount >= kBeyond) return Limits::max();
    if (amount < -kBeyond) return Limits::min();
    return static_cast<std::int64_t>(amount);
}

const std::string& Value::text() const {
    static const std::string no_text;
    if (const auto* content = std::get_if<std::string>(&content_)) return *content;
    if (const auto* content = std::get_if<Memo>(&content_)) return content->text;
    return no_text;
}

Date Value::date() const {
    const Date* content = std::get_if<Date>(&content_);
    return content != nullptr ? *content : Date();
}

const ArrayReference& Value::array() const {
    static const ArrayReference no_array;
    const auto* content = std::get_if<ArrayReference>(&content_);
    return content != nullptr ? *content : no_array;
}

Number Value::number_form() const {
    const Number* content = std::get_if<Number>(&content_);
    return content != nullptr ? *content : Number();
}

bool Value::empty() const {
    switch (kind()) {
        case ValueKind::kNil:
            return true;
        case ValueKind::kLogical:
            return !logical();
        case ValueKind::kNumber:
            return number() == 0;
        case ValueKind::kCharacter:
        case ValueKind::kMemo:
            return text().find_first_not_of(" \t\r\n") == std::string::npos;
        case ValueKind::kDate:
            return date().empty();
        case ValueKind::kArray:
            return array() == nullptr || array()->empty();
    }
    return true;
}

bool Value::exactly_equals(const Value& other) const {
    if (is_text() && other.is_text()) return text() == other.text();
    return content_ == other.content_;
}

}  // namespace brenik
