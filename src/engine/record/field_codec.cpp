// Encodes and decodes every field type.

#include "engine/record/field_codec.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>

#include "util/decimal_text.h"
#include "util/runtime.h"

namespace brenik::record {
namespace {

constexpr int kBinaryNumberWidth = 20;
constexpr int kIntegerWidth = 11;
constexpr double kCurrencyScale = 10000;
constexpr std::size_t kDateTimeDigits = 17;

[[noreturn]] void unsuitable(const Field& field, const std::string& what) {
    throw EngineFault(
        FaultCode::kUnsuitableValue, "field put",
        "field " + field.name + " of type " + std::string(1, field.type) + ": " + what);
}

std::string_view field_text(const RecordView& record, const Field& field) {
    return as_text(record.field(field));
}

void set_bit(MutableBytes record, const TableLayout& layout, std::uint32_t bit, bool on) {
    Byte& byte = record[layout.null_flags->offset + bit / 8];
    const auto mask = static_cast<Byte>(1U << (bit % 8));
    byte = static_cast<Byte>(on ? byte | mask : byte & ~mask);
}

bool test_bit(const RecordView& record, const TableLayout& layout, std::uint32_t bit) {
    return (record.bytes[layout.null_flags->offset + bit / 8] >> (bit % 8) & 1) != 0;
}

Number ascii_number(const RecordView& record, const Field& field) {
    return {leading_number(field_text(record, field)), static_cast<int>(field.width),
            static_cast<int>(field.decimals)};
}

// If its length bit is set, a V or Q field stores its length in its last byte.
std::string variable_text(const RecordView& record, const TableLayout& layout, const Field& field) {
    const Bytes bytes = record.field(field);
    std::size_t length = field.width;
    if (field.length_bit && layout.null_flags && test_bit(record, layout, *field.length_bit)) {
        length = std::min<std::size_t>(bytes.back(), field.width - 1);
    }
    return std::string(as_text(bytes.first(length)));
}

void put_text(MutableBytes at, std::string_view text, Byte pad) {
    const std::size_t kept = std::min(text.size(), at.size());
    std::copy_n(text.begin(), kept, at.begin());
    std::fill(at.begin() + static_cast<std::ptrdiff_t>(kept), at.end(), pad);
}

void put_ascii_number(MutableBytes at, const Field& field, double amount) {
    const std::string text =
        fixed_text(amount, static_cast<int>(field.width), static_cast<int>(field.decimals));
    if (text.empty()) {
        std::fill(at.begin(), at.end(), Byte{'*'});
    } else {
        put_text(at, text, ' ');
    }
}

std::int64_t whole_within(const Field& field, double amount, double low, double high) {
    const double rounded = std::round(amount);
    if (!(rounded >= low && rounded <= high)) unsuitable(field, "the number does not fit");
    return static_cast<std::int64_t>(rounded);
}

void put_date_time(MutableBytes at, const Field& field, std::string_view given) {
    const std::string_view text = trim_both(given);
    std::fill(at.begin(), at.end(), Byte{0});
    if (text.empty()) return;
    const bool digits =
        std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    const Date date = digits ? Date::from_ymd(text.substr(0, 8)) : Date();
    if (date.empty() || (text.size() != 8 && text.size() != 14 && text.size() != kDateTimeDigits)) {
        unsuitable(field, "not a date and time of 8, 14 or 17 digits");
    }
    const auto part = [&](std::size_t start, std::size_t count) {
        std::uint32_t number = 0;
        if (text.size() >= start + count) {
            std::from_chars(text.data() + start, text.data() + start + count, number);
        }
        return number;
    };
    const std::uint32_t hour = part(8, 2), minute = part(10, 2), second = part(12, 2);
    if (hour > 23 || minute > 59 || second > 59) unsuitable(field, "no such time of day");
    store_le32(at.data(), static_cast<std::uint32_t>(date.julian_day()));
    store_le32(at.data() + 4, ((hour * 60 + minute) * 60 + second) * 1000 + part(14, 3));
}

void put_variable_text(MutableBytes record, const TableLayout& layout, const Field& field,
                       std::string_view text) {
    const MutableBytes at = record.subspan(field.offset, field.width);
    put_text(at, text, 0);
    if (!field.length_bit || !layout.null_flags) return;
    const bool is_short = text.size() < field.width;
    if (is_short) at.back() = static_cast<Byte>(text.size());
    set_bit(record, layout, *field.length_bit, is_short);
}

void make_blank_field(MutableBytes record, const TableLayout& layout, const Field& field) {
    if (field.kind->form == FieldForm::kVariableText) {
        return put_variable_text(record, layout, field, "");
    }
    std::ranges::fill(record.subspan(field.offset, field.width), field.kind->blank);
}

double number_for(const Field& field, const Value& value) {
    if (value.kind() != ValueKind::kNumber) unsuitable(field, "the value is not a number");
    return value.number();
}

const std::string& text_for(const Field& field, const Value& value) {
    if (!value.is_text()) unsuitable(field, "the value is not text");
    return value.text();
}

}  // namespace

std::string date_time_text(std::int32_t day, std::uint32_t ms) {
    if (day == 0 && ms == 0) return std::string(kDateTimeDigits, ' ');
    const std::uint32_t in_day = std::min<std::uint32_t>(ms, kMillisecondsPerDay - 1);
    char time[16];
    std::snprintf(time, sizeof time, "%02u%02u%02u%03u", in_day / 3'600'000 % 24,
                  in_day / 60'000 % 60, in_day / 1000 % 60, in_day % 1000);
    return Date(day).to_ymd() + time;
}

Value read_field(const RecordView& record, const TableLayout& layout, const Field& field) {
    if (is_null(record, layout, field)) return {};
    const Byte* at = record.bytes.data() + field.offset;
    switch (field.kind->form) {
        case FieldForm::kDecimal:
            return ascii_number(record, field);
        case FieldForm::kDate:
            return Date::from_ymd(field_text(record, field));
        case FieldForm::kLogical:
            return std::string_view("TtYy").find(static_cast<char>(*at)) != std::string_view::npos;
        case FieldForm::kInteger:
            return Number{static_cast<double>(static_cast<std::int32_t>(load_le32(at))),
                          kIntegerWidth, 0};
        case FieldForm::kDouble:
            return Number{std::bit_cast<double>(load_le64(at)), kBinaryNumberWidth,
                          static_cast<int>(field.decimals)};
        case FieldForm::kCurrency:
            return Number{
                static_cast<double>(static_cast<std::int64_t>(load_le64(at))) / kCurrencyScale,
                kBinaryNumberWidth, kCurrencyDecimals};
        case FieldForm::kDateTime:
            return date_time_text(static_cast<std::int32_t>(load_le32(at)), load_le32(at + 4));
        case FieldForm::kVariableText:
            return variable_text(record, layout, field);
        default:
            return field_text(record, field);
    }
}

// Most fields hold text, which is compared where it lies.
bool holds_value(const RecordView& record, const TableLayout& layout, const Field& field,
                 const Value& value) {
    if (field.kind->form == FieldForm::kText && value.is_text()) {
        return field_text(record, field) == value.text() && !is_null(record, layout, field);
    }
    return read_field(record, layout, field).exactly_equals(value);
}

// Other programs write the same value in other forms (asterisks, slashed dates, zero bytes).
// Putting back the value that was read keeps their form; only blanks are filled in. An empty text
// or date is blank itself.
bool says_already(const RecordView& record, const TableLayout& layout, const Field& field,
                  const Value& value) {
    if (!holds_value(record, layout, field, value)) return false;
    const FieldForm form = field.kind->form;
    if (form == FieldForm::kText || form == FieldForm::kDate) return true;
    const Bytes raw = record.field(field);
    return std::any_of(raw.begin(), raw.end(), [](Byte byte) { return byte != ' '; });
}

void write_field(MutableBytes record, const TableLayout& layout, const Field& field,
                 const Value& value) {
    set_null(record, layout, field, value.is_nil());
    if (value.is_nil()) return make_blank_field(record, layout, field);
    const MutableBytes at = record.subspan(field.offset, field.width);
    switch (field.kind->form) {
        case FieldForm::kDecimal:
            return put_ascii_number(at, field, number_for(field, value));
        case FieldForm::kDate:
            if (value.kind() != ValueKind::kDate) unsuitable(field, "the value is not a date");
            return put_text(at, value.date().to_ymd(), ' ');
        case FieldForm::kLogical:
            if (value.kind() != ValueKind::kLogical)
                unsuitable(field, "the value is not a logical");
            at[0] = value.logical() ? 'T' : 'F';
            return;
        case FieldForm::kInteger: {
            const std::int64_t whole = whole_within(field, number_for(field, value),
                                                    std::numeric_limits<std::int32_t>::min(),
                                                    std::numeric_limits<std::int32_t>::max());
            return store_le32(at.data(), static_cast<std::uint32_t>(whole));
        }
        case FieldForm::kDouble:
            return store_le64(at.data(), std::bit_cast<std::uint64_t>(number_for(field, value)));
        case FieldForm::kCurrency: {
            constexpr double kLimit = 9.2e18;
            const std::int64_t scaled =
                whole_within(field, number_for(field, value) * kCurrencyScale, -kLimit, kLimit);
            return store_le64(at.data(), static_cast<std::uint64_t>(scaled));
        }
        case FieldForm::kDateTime:
            return put_date_time(at, field, text_for(field, value));
        case FieldForm::kVariableText:
            return put_variable_text(record, layout, field, text_for(field, value));
        default:
            return put_text(at, text_for(field, value), ' ');
    }
}

void make_blank_record(MutableBytes record, const TableLayout& layout) {
    std::fill(record.begin(), record.end(), Byte{0});
    record[0] = ' ';
    for (const Field& field : layout.fields) make_blank_field(record, layout, field);
}

void set_null(MutableBytes record, const TableLayout& layout, const Field& field, bool on) {
    if (!field.null_bit || !layout.null_flags) return;
    set_bit(record, layout, *field.null_bit, on);
    if (field.length_bit) set_bit(record, layout, *field.length_bit, on);
}

}  // namespace brenik::record
