// Judges a field by its form. Programs differ in what they write for "no value": blanks, zero bytes
// or, for a date, eight digits 0.

#include "engine/record/stored_value.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "engine/record/field_codec.h"

namespace brenik::record {
namespace {

constexpr std::string_view kBlanks("\0 ", 2);
constexpr std::string_view kNoDate = "00000000";

bool is_blank(std::string_view text) {
    return text.find_first_not_of(kBlanks) == std::string_view::npos;
}

std::string_view without_blanks(std::string_view text) {
    const std::size_t first = text.find_first_not_of(kBlanks);
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

StoredValue decimal(std::string_view text) {
    if (is_blank(text)) return StoredValue::kBlank;
    std::string_view number = without_blanks(text);
    if (number.find_first_not_of('*') == std::string_view::npos) return StoredValue::kOverflow;
    const bool signed_twice = number.size() > 1 && (number[1] == '-' || number[1] == '+');
    if (number[0] == '+' && !signed_twice) number.remove_prefix(1);
    double amount = 0;
    const char* end = number.data() + number.size();
    const auto read = std::from_chars(number.data(), end, amount);
    const bool plain = number.find_first_not_of("0123456789.+-eE") == std::string_view::npos;
    return read.ptr == end && plain ? StoredValue::kSound : StoredValue::kUnreadableNumber;
}

StoredValue date(std::string_view text) {
    if (is_blank(text) || text == kNoDate) return StoredValue::kBlank;
    return Date::from_ymd(text).empty() ? StoredValue::kImpossibleDate : StoredValue::kSound;
}

StoredValue date_time(Bytes bytes) {
    if (is_blank(as_text(bytes))) return StoredValue::kBlank;
    const auto day = static_cast<std::int32_t>(load_le32(bytes.data()));
    const std::uint32_t ms = load_le32(bytes.data() + 4);
    const bool possible = Date(day).civil().day != 0 && ms < kMillisecondsPerDay;
    return possible ? StoredValue::kSound : StoredValue::kImpossibleDate;
}

StoredValue logical(char letter) {
    if (kBlanks.find(letter) != std::string_view::npos || letter == '?') return StoredValue::kBlank;
    const bool known = std::string_view("TtYyFfNn").find(letter) != std::string_view::npos;
    return known ? StoredValue::kSound : StoredValue::kUnreadableLogical;
}

}  // namespace

StoredValue stored_value(const RecordView& record, const TableLayout& layout, const Field& field) {
    if (is_null(record, layout, field)) return StoredValue::kNull;
    const Bytes bytes = record.field(field);
    switch (field.kind->form) {
        case FieldForm::kDecimal:
            return decimal(as_text(bytes));
        case FieldForm::kDate:
            return date(as_text(bytes));
        case FieldForm::kDateTime:
            return date_time(bytes);
        case FieldForm::kLogical:
            return logical(as_text(bytes)[0]);
        default:
            return StoredValue::kSound;
    }
}

}  // namespace brenik::record
