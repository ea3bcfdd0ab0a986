// Evaluates, compares and encodes keys.

#include "engine/advantage/key_value.h"

#include <algorithm>
#include <cstring>

#include "engine/advantage/assumptions.h"
#include "engine/expression/fields.h"
#include "util/fault.h"

namespace brenik::advantage {
namespace {

[[noreturn]] void unsuitable(const std::string& reason) {
    throw EngineFault(FaultCode::kUnsuitableValue, "seek", reason);
}

void require_kind(const Value& value, ValueKind kind, const char* keys) {
    if (value.kind() != kind) unsuitable(std::string("the order's keys are ") + keys);
}

bool is_ascii(const std::string& text) {
    return std::ranges::all_of(text, [](char c) { return static_cast<Byte>(c) < 0x80; });
}

KeyValue numeric(double number) { return {false, number, {}}; }

}  // namespace

KeyValue OrderKey::of(const record::RecordView& record) const {
    const expression::ExpressionResult result = key_.evaluate(record);
    KeyValue key{result.is_null && key_.nullable(), result.is_null ? 0 : result.number, {}};
    if (is_text() && !result.is_null) key.text = result.text;
    if (is_text()) key.text.resize(key_.width(), ' ');
    return key;
}

KeyValue OrderKey::sought(const Value& value) const {
    if (value.is_nil()) {
        if (!key_.nullable()) unsuitable("the order has no keys for NULL");
        return {true, 0, std::string(is_text() ? key_.width() : 0, ' ')};
    }
    switch (key_.type()) {
        case expression::ResultType::kCharacter:
            if (!value.is_text()) unsuitable("the order's keys are text");
            return {false, 0, value.text().substr(0, key_.width())};
        case expression::ResultType::kNumber:
            require_kind(value, ValueKind::kNumber, "numbers");
            return numeric(value.number());
        case expression::ResultType::kDate:
            require_kind(value, ValueKind::kDate, "dates");
            return numeric(value.date().julian_day());
        case expression::ResultType::kLogical:
            require_kind(value, ValueKind::kLogical, "logical");
            return numeric(value.logical() ? 1 : 0);
        case expression::ResultType::kDateTime:
            return sought_moment(value);
    }
    unsuitable("the order's keys are of no known type");
}

KeyValue OrderKey::sought_moment(const Value& value) const {
    if (value.kind() == ValueKind::kDate) return numeric(value.date().julian_day());
    if (!value.is_text() || value.text().size() != expression::kDateTimeDigits) {
        unsuitable("the order's keys are dates with times, as text of 17 digits");
    }
    return numeric(expression::date_time_number(value.text()));
}

int OrderKey::compare(const KeyValue& key, const KeyValue& limit) {
    if (key.is_null != limit.is_null) return key.is_null ? -1 : 1;
    if (key.number != limit.number) return key.number < limit.number ? -1 : 1;
    return key.text.compare(0, limit.text.size(), limit.text);
}

// Raw keys are never recoded. Without need, text goes as text: the bytes of a raw key are more of
// the client's own affair.
ClientKey OrderKey::for_client(const KeyValue& key) const {
    if (key.is_null) return {std::string(length_, '\0'), kRawKey};
    if (is_text()) return {key.text, oem_ && !is_ascii(key.text) ? kRawKey : kStringKey};
    if (key_.type() == expression::ResultType::kLogical) {
        return {key.number != 0 ? "T" : "F", kStringKey};
    }
    std::string bytes(sizeof key.number, '\0');
    std::memcpy(bytes.data(), &key.number, sizeof key.number);
    return {bytes, kDoubleKey};
}

}  // namespace brenik::advantage
