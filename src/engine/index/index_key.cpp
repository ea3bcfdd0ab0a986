// Encodes results and sought values as key bytes.

#include "engine/index/index_key.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <optional>

#include "engine/expression/fields.h"
#include "util/decimal_text.h"
#include "util/fault.h"
#include "util/runtime.h"

namespace brenik::index {
namespace {

constexpr std::size_t kDoubleLength = 8;
constexpr std::size_t kIntegerLength = 4;
constexpr std::size_t kLogicalLength = 1;
constexpr Byte kValuePrefix = 0x80;
constexpr std::uint64_t kTopBit = 0x8000000000000000;
constexpr double kCurrencyScale = 10000;
constexpr double kMaxScaledCurrency = 9.2e18;

bool is_lone(const expression::Expression& key, char type) {
    return key.lone_field() != nullptr && key.lone_field()->type == type;
}

KeyForm natural_form(const expression::Expression& key) {
    if (key.type() == expression::ResultType::kCharacter) return KeyForm::kText;
    if (key.type() == expression::ResultType::kLogical) return KeyForm::kLogical;
    if (is_lone(key, 'I')) return KeyForm::kInteger;
    return is_lone(key, 'Y') ? KeyForm::kCurrency : KeyForm::kDouble;
}

std::size_t length_of(KeyForm form, const expression::Expression& key) {
    switch (form) {
        case KeyForm::kText:
            return key.width();
        case KeyForm::kInteger:
            return kIntegerLength;
        case KeyForm::kLogical:
            return kLogicalLength;
        default:
            return kDoubleLength;
    }
}

void check_fit_for_key(const expression::Expression& key) {
    if (key.depends_on_settings()) {
        throw expression::ExpressionError("the key " + key.text() +
                                          " depends on the session's date form; DTOS does not");
    }
}

[[noreturn]] void contradicted(const expression::Expression& key, std::size_t length,
                               const std::string& reason) {
    throw expression::ExpressionError("a key length of " + std::to_string(length) +
                                      " contradicts " + key.text() + ": " + reason);
}

// Negative zero has the key of zero.
std::uint64_t double_bits(double number) {
    const auto bits = std::bit_cast<std::uint64_t>(number == 0 ? 0.0 : number);
    return (bits & kTopBit) != 0 ? ~bits : bits | kTopBit;
}

std::uint64_t currency_bits(std::int64_t scaled) {
    return static_cast<std::uint64_t>(scaled) ^ kTopBit;
}

std::uint32_t integer_bits(std::int32_t number) {
    return static_cast<std::uint32_t>(number) ^ 0x80000000;
}

void put_text(std::string_view text, MutableBytes out) {
    const std::size_t length = std::min(text.size(), out.size());
    std::fill(std::copy_n(text.begin(), length, out.begin()), out.end(), Byte{' '});
}

// A lone currency field enters its key as stored, because a double would lose digits.
std::int64_t stored_currency(const expression::Expression& key, const record::RecordView& record) {
    return static_cast<std::int64_t>(load_le64(record.field(*key.lone_field()).data()));
}

// In a key without a prefix byte, NULL counts as the blank value.
void put_value(const expression::Expression& key, const KeyFormat& format,
               const record::RecordView& record, const expression::ExpressionResult& result,
               MutableBytes out) {
    const double number = result.is_null ? 0 : result.number;
    switch (format.form) {
        case KeyForm::kText:
            put_text(result.is_null ? std::string_view() : result.text, out);
            break;
        case KeyForm::kDouble:
            store_be64(out.data(), double_bits(number));
            break;
        case KeyForm::kInteger:
            store_be32(out.data(), integer_bits(static_cast<std::int32_t>(number)));
            break;
        case KeyForm::kCurrency:
            store_be64(out.data(),
                       currency_bits(result.is_null ? 0 : stored_currency(key, record)));
            break;
        case KeyForm::kLogical:
            out[0] = number != 0 ? 'T' : 'F';
            break;
    }
}

[[noreturn]] void unsuitable(const std::string& reason) {
    throw EngineFault(FaultCode::kUnsuitableValue, "seek", reason);
}

std::string be64_text(std::uint64_t bits) {
    Byte bytes[kDoubleLength];
    store_be64(bytes, bits);
    return std::string(as_text(bytes));
}

std::string be32_text(std::uint32_t bits) {
    Byte bytes[kIntegerLength];
    store_be32(bytes, bits);
    return std::string(as_text(bytes));
}

std::string integer_key(double number) {
    constexpr double kLowest = std::numeric_limits<std::int32_t>::min();
    constexpr double kHighest = std::numeric_limits<std::int32_t>::max();
    if (!(number >= kLowest && number <= kHighest) || number != std::trunc(number)) {
        unsuitable("the order's keys are whole numbers of 32 bits");
    }
    return be32_text(integer_bits(static_cast<std::int32_t>(number)));
}

std::string currency_key(double number) {
    const double scaled = std::round(number * kCurrencyScale);
    if (!(std::fabs(scaled) <= kMaxScaledCurrency)) {
        unsuitable("the number is beyond what a currency field holds");
    }
    return be64_text(currency_bits(static_cast<std::int64_t>(scaled)));
}

std::string number_key(const KeyFormat& format, const Value& value) {
    if (value.kind() != ValueKind::kNumber) unsuitable("the order's keys are numbers");
    if (format.form == KeyForm::kInteger) return integer_key(value.number());
    if (format.form == KeyForm::kCurrency) return currency_key(value.number());
    return be64_text(double_bits(value.number()));
}

std::string date_time_key(const Value& value) {
    if (value.kind() == ValueKind::kDate) return be64_text(double_bits(value.date().julian_day()));
    if (!value.is_text() || value.text().size() != expression::kDateTimeDigits) {
        unsuitable("the order's keys are dates with times, as text of 17 digits");
    }
    return be64_text(double_bits(expression::date_time_number(value.text())));
}

std::string value_key(const KeyFormat& format, const Value& value, std::size_t length) {
    switch (format.type) {
        case expression::ResultType::kCharacter:
            if (!value.is_text()) unsuitable("the order's keys are text");
            return value.text().substr(0, length);
        case expression::ResultType::kNumber:
            return number_key(format, value);
        case expression::ResultType::kDate:
            if (value.kind() != ValueKind::kDate) unsuitable("the order's keys are dates");
            return be64_text(double_bits(value.date().julian_day()));
        case expression::ResultType::kDateTime:
            return date_time_key(value);
        case expression::ResultType::kLogical:
            if (value.kind() != ValueKind::kLogical) unsuitable("the order's keys are logical");
            return value.logical() ? "T" : "F";
    }
    unsuitable("the order's keys are of no known type");
}

}  // namespace

KeyFormat natural_key_format(const expression::Expression& key, bool candidate) {
    check_fit_for_key(key);
    KeyFormat format;
    format.type = key.type();
    format.form = natural_form(key);
    format.null_prefix = key.nullable() && !candidate;
    const std::size_t body = length_of(format.form, key);
    format.length = body + (format.null_prefix ? 1 : 0);
    if (body == 0 || format.length > kMaxKeyLength) {
        throw expression::ExpressionError(
            "the key " + key.text() + " is " + std::to_string(format.length) +
            " bytes long, a key has 1 to " + std::to_string(kMaxKeyLength));
    }
    return format;
}

KeyFormat existing_key_format(const expression::Expression& key, std::size_t key_length,
                              bool null_prefix) {
    check_fit_for_key(key);
    const std::size_t prefix = null_prefix ? 1 : 0;
    if (key_length <= prefix || key_length > kMaxKeyLength) {
        contradicted(key, key_length, "no key has that length");
    }
    const std::size_t body = key_length - prefix;
    KeyFormat format{natural_form(key), key.type(), key_length, null_prefix};
    // Other programs that make index files use the same option bit for tags of another kind.
    if (null_prefix && !key.nullable()) contradicted(key, key_length, "it cannot be NULL");
    if (format.form == KeyForm::kText) {
        if (null_prefix && key_length == key.width()) {
            contradicted(key, key_length, "there is no room for the NULL prefix");
        }
        return format;
    }
    if (format.form == KeyForm::kInteger && body == kDoubleLength) format.form = KeyForm::kDouble;
    const std::size_t wanted = length_of(format.form, key);
    if (body != wanted) {
        contradicted(key, key_length, "its keys have " + counted(wanted + prefix, "byte"));
    }
    return format;
}

void build_key(const expression::Expression& key, const KeyFormat& format,
               const record::RecordView& record, MutableBytes out) {
    const expression::ExpressionResult result = key.evaluate(record);
    if (!format.null_prefix) return put_value(key, format, record, result, out);
    if (result.is_null) {
        std::fill(out.begin(), out.end(), Byte{0});
        return;
    }
    out[0] = kValuePrefix;
    put_value(key, format, record, result, out.subspan(1));
}

std::string seek_key(const KeyFormat& format, const Value& value) {
    if (value.is_nil()) {
        if (!format.null_prefix) unsuitable("the order has no keys for NULL");
        return std::string(format.length, '\0');
    }
    if (!format.null_prefix) return value_key(format, value, format.length);
    return static_cast<char>(kValuePrefix) + value_key(format, value, format.length - 1);
}

}  // namespace brenik::index
