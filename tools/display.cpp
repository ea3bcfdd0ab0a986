// Converts values to UTF-8 text and JSON.

#include "display.h"

#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <nlohmann/json.hpp>

#include "engine/record/field_codec.h"
#include "engine/record/memo_format.h"
#include "engine/record/stored_value.h"
#include "util/fault.h"
#include "util/runtime.h"

namespace brenik::tools {
namespace {

using Json = nlohmann::ordered_json;
using record::FieldForm;
using record::StoredValue;

constexpr std::size_t kMillisecondsAt = 14;     // in the text of a date-time
constexpr std::size_t kSurelyExactDigits = 15;  // a double returns as many as it was given

std::string hexadecimal(std::string_view bytes) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text = bytes.empty() ? "" : "0x";
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += {kDigits[byte >> 4], kDigits[byte & 15]};
    }
    return text;
}

std::string dashed_date(std::string_view ymd) {
    return std::string(ymd.substr(0, 4)) + "-" + std::string(ymd.substr(4, 2)) + "-" +
           std::string(ymd.substr(6, 2));
}

std::string date_time(const std::string& digits) {
    const std::string shown = dashed_date(digits) + " " + digits.substr(8, 2) + ":" +
                              digits.substr(10, 2) + ":" + digits.substr(12, 2);
    const std::string ms = digits.substr(kMillisecondsAt);
    return ms == "000" ? shown : shown + "." + ms;
}

// The shortest text that reads back as the same number. Amounts of everyday size have no exponent.
std::string shortest(double number) {
    constexpr double kLeast = 1e-5, kGreatest = 1e16;
    if (std::isnan(number)) return "NaN";
    if (std::isinf(number)) return number > 0 ? "Infinity" : "-Infinity";
    const double size = std::fabs(number);
    const bool everyday = size == 0 || (size >= kLeast && size < kGreatest);
    std::array<char, 40> text{};
    char* const end = text.data() + text.size();
    const auto written = everyday
                             ? std::to_chars(text.data(), end, number, std::chars_format::fixed)
                             : std::to_chars(text.data(), end, number);
    return {text.data(), written.ptr};
}

double binary_double(Bytes bytes) { return std::bit_cast<double>(load_le64(bytes.data())); }

std::string currency(Bytes bytes) {
    const auto scaled = static_cast<std::int64_t>(load_le64(bytes.data()));
    std::string digits = std::to_string(scaled);
    const std::string sign = scaled < 0 ? "-" : "";
    digits.erase(0, sign.size());
    constexpr std::size_t kDecimals = record::kCurrencyDecimals;
    if (digits.size() <= kDecimals) digits.insert(0, kDecimals + 1 - digits.size(), '0');
    return sign + digits.insert(digits.size() - kDecimals, ".");
}

// Digits from the first to the last that is not 0.
std::size_t significant_digits(std::string_view number) {
    std::size_t digits = 0, counted_to_last = 0;
    for (const char c : number.substr(0, number.find_first_of("eE"))) {
        if (c < '0' || c > '9' || (digits == 0 && c == '0')) continue;
        ++digits;
        if (c != '0') counted_to_last = digits;
    }
    return counted_to_last;
}

// A decimal number as a JSON number, or as a string if reading that would lose digits.
Json exact_number(const std::string& text, bool with_decimals) {
    const char* const first = text.data() + (text.starts_with('+') ? 1 : 0);
    const char* const end = text.data() + text.size();
    std::int64_t whole = 0;
    const auto as_whole = std::from_chars(first, end, whole);
    if (!with_decimals && as_whole.ec == std::errc() && as_whole.ptr == end) return whole;
    double number = 0;
    const auto as_double = std::from_chars(first, end, number);
    const bool exact =
        as_double.ec == std::errc() && significant_digits(text) <= kSurelyExactDigits;
    return exact ? Json(number) : Json(text);
}

Json json_double(double number, bool with_decimals) {
    constexpr double kMostWhole = 9007199254740992;  // beyond, not every whole number is a double
    if (!std::isfinite(number)) return shortest(number);
    const bool negative_zero = number == 0 && std::signbit(number);
    const bool whole = std::fabs(number) < kMostWhole && number == std::trunc(number);
    if (!with_decimals && whole && !negative_zero) {
        return static_cast<std::int64_t>(number);
    }
    return number;
}

// The library takes a damaged reference to a memo for none.
std::string text_of(Table& table, std::size_t number) {
    const record::Field& field = table.layout().fields[number - 1];
    if (field.is_memo() && !record::read_memo_pointer(table.record(), field).is_number) {
        throw EngineFault(FaultCode::kDamagedFile, "field get",
                          table.path() + ": the memo's block is not a number");
    }
    return table.field_get(number).text();
}

// The shape of a field in a table, and its bytes in the current record.
struct Place {
    Table& table;
    std::size_t number;
    const TableText& text;
    const record::Field& field = table.layout().fields[number - 1];
    record::RecordView view = table.record();

    Bytes bytes() const { return view.field(field); }
    std::string_view stored() const { return as_text(bytes()); }
    StoredValue state() const { return record::stored_value(view, table.layout(), field); }
    std::string value_text() const { return text_of(table, number); }
};

// A number from ASCII digits, without the blanks around it.
std::string decimal(const Place& place) {
    return place.text.shown(trim_both(replace_all(place.stored(), std::string_view("\0", 1), " ")));
}

// What a field holds that has no value.
std::string as_stored(const Place& place) {
    if (place.field.kind->form == FieldForm::kDateTime) return hexadecimal(place.stored());
    return place.text.shown(trim_both(place.stored()));
}

std::string text_value(const Place& place) {
    const std::string value = place.value_text();
    if (place.field.is_binary()) return hexadecimal(value);
    const bool padded = place.field.kind->form == FieldForm::kText;
    return place.text.shown(padded ? trim_right(value) : value);
}

std::string date_value(const Place& place) {
    if (place.field.kind->form == FieldForm::kDate) return dashed_date(place.stored());
    return date_time(place.value_text());
}

Json sound_value(const Place& place) {
    const bool with_decimals = place.field.decimals > 0;
    switch (place.field.kind->form) {
        case FieldForm::kDecimal:
            return exact_number(decimal(place), with_decimals);
        case FieldForm::kInteger:
            return static_cast<std::int32_t>(load_le32(place.bytes().data()));
        case FieldForm::kDouble:
            return json_double(binary_double(place.bytes()), with_decimals);
        case FieldForm::kCurrency:
            return exact_number(currency(place.bytes()), true);
        case FieldForm::kLogical:
            return place.table.field_get(place.number).logical();
        case FieldForm::kDate:
        case FieldForm::kDateTime:
            return date_value(place);
        default:
            return text_value(place);
    }
}

struct RawField {
    std::string stored;
    std::string memo;    // its bytes
    std::string reason;  // why there are none; empty if there are
};

RawField raw_field(Table& table, const record::Field& field) {
    RawField raw{hexadecimal(as_text(table.record().field(field))), "", ""};
    if (!field.is_memo()) return raw;
    const auto number = static_cast<std::size_t>(&field - table.layout().fields.data()) + 1;
    try {
        raw.memo = hexadecimal(text_of(table, number));
    } catch (const EngineFault& fault) {
        raw.reason = to_utf8(fault.what());
    }
    return raw;
}

}  // namespace

std::string dump(const Json& json, int indent) {
    return json.dump(indent, ' ', false, Json::error_handler_t::replace);
}

Json to_json(Table& table, std::size_t field, const TableText& text) {
    const Place place{table, field, text};
    switch (place.state()) {
        case StoredValue::kSound:
            return sound_value(place);
        case StoredValue::kNull:
            return nullptr;
        case StoredValue::kBlank:
            return "";
        default:
            return as_stored(place);
    }
}

std::string to_line(Table& table, std::size_t field, const TableText& text) {
    const Place place{table, field, text};
    const StoredValue state = place.state();
    if (state == StoredValue::kNull) return "NULL";
    const bool sound = state == StoredValue::kSound;
    const FieldForm form = place.field.kind->form;
    if (sound && form == FieldForm::kDecimal) return decimal(place);
    if (sound && form == FieldForm::kDouble) return shortest(binary_double(place.bytes()));
    if (sound && form == FieldForm::kCurrency) return currency(place.bytes());
    const bool is_text = form == FieldForm::kText || form == FieldForm::kVariableText;
    if (sound && (is_text || form == FieldForm::kMemo)) return one_line(text_value(place));
    const Json json = to_json(table, field, text);
    return json.is_string() ? one_line(json.get<std::string>()) : json.dump();
}

Json raw_json(Table& table, const record::Field& field) {
    const RawField raw = raw_field(table, field);
    if (!field.is_memo()) return raw.stored;
    if (!raw.reason.empty()) return {{"field", raw.stored}, {"fault", raw.reason}};
    return {{"field", raw.stored}, {"memo", raw.memo}};
}

std::string raw_line(Table& table, const record::Field& field) {
    const RawField raw = raw_field(table, field);
    if (!field.is_memo()) return raw.stored;
    if (!raw.reason.empty()) return raw.stored + ", no memo: " + raw.reason;
    return raw.stored + (raw.memo.empty() ? ", empty memo" : ", memo " + raw.memo);
}

}  // namespace brenik::tools
