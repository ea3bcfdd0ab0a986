// Fields: their text in the client's form and back, whole records, and binary data.

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <utility>

#include "client/readings.h"
#include "client/stand_in.h"
#include "engine/record/field_codec.h"
#include "util/decimal_text.h"
#include "util/runtime.h"

namespace brenik::stand_in {
namespace {

using record::FieldForm;

enum : U16 { kTrimLeft = 1, kTrimRight = 2 };
constexpr int kCenturyYears = 100;

// Windows characters for those of the DOS code page from 0x80 on. Those that have none get a
// letter that looks similar, so some cannot be converted back.
constexpr std::string_view kAnsiOfOem =
    "\xC7\xFC\xE9\xE2\xE4\xE0\xE5\xE7\xEA\xEB\xE8\xEF\xEE\xEC\xC4\xC5"
    "\xC9\xE6\xC6\xF4\xF6\xF2\xFB\xF9\xFF\xD6\xDC\xA2\xA3\xA5P\x83"
    "\xE1\xED\xF3\xFA\xF1\xD1\xAA\xBA\xBF_\xAC\xBD\xBC\xA1\xAB\xBB"
    "++++++++++++++++++++++++++++++++++++++++++++++++"
    "a\xDFGpSs\xB5tFTOd8fen"
    "=\xB1==()\xF7~\xB0\xB7\xB7vn\xB2\xA6\xA0";
static_assert(kAnsiOfOem.size() == 0x80);

bool is_text(const record::Field& field) {
    return field.kind->form == FieldForm::kText || field.kind->form == FieldForm::kVariableText;
}

bool is_converted(const ClientTable& table, const record::Field& field) {
    return table.is_oem() && (is_text(field) || field.type == 'M') && !field.is_binary() &&
           reads("oem_fields=converted");
}

std::string to_ansi(std::string_view oem) {
    std::string ansi(oem);
    for (char& c : ansi) {
        const auto byte = static_cast<Byte>(c);
        if (byte >= 0x80) c = kAnsiOfOem[byte - 0x80];
    }
    return ansi;
}

// The date format shows century, year, month and day in two digits each.
std::size_t date_part(char letter) { return std::string_view("CYMD").find(letter); }

std::string date_text(Date date) {
    std::string text = process().date_format;
    const CivilDay day = date.civil();
    const std::array parts{day.year / kCenturyYears, day.year % kCenturyYears, day.month, day.day};
    bool tens = true;
    for (char& c : text) {
        const std::size_t part = date_part(c);
        if (part == std::string_view::npos) {
            if (date.empty() && reads("empty_date=blank")) c = ' ';
            continue;
        }
        c = static_cast<char>('0' + (tens ? parts[part] / 10 : parts[part] % 10));
        if (date.empty()) c = ' ';
        tens = !tens;
    }
    return text;
}

// A field of the current record of a table.
struct Target {
    Target(Handle handle, const char* name)
        : table(table_of(handle)),
          position(field_argument(table, name)),
          field(table.layout().fields[position - 1]) {
        table.require_record();
    }
    // A refused value leaves the record unlocked.
    void put(const Value& value) const {
        std::vector<Byte> image = table.image();
        record::write_field(image, table.layout(), field, value);
        record::set_null(image, table.layout(), field, false);
        table.changing() = std::move(image);
    }

    ClientTable& table;
    const std::size_t position;
    const record::Field& field;
};

std::string memo_text(const Target& target) {
    std::string text = target.table.memo(target.position);
    const bool cut = target.field.type == 'M' && reads("memo_zero=cut");
    if (cut) text.resize(strnlen(text.data(), text.size()));
    return is_converted(target.table, target.field) ? to_ansi(text) : text;
}

std::string field_text(const Target& target) {
    const record::RecordView record{target.table.image(), target.table.record_number()};
    if (target.field.is_memo()) return memo_text(target);
    const std::string raw(as_text(record.field(target.field)));
    switch (target.field.kind->form) {
        case FieldForm::kDecimal:
            return reads("number_text=trimmed") ? std::string(trim_both(raw)) : raw;
        case FieldForm::kDate:
            return date_text(Date::from_ymd(raw));
        case FieldForm::kLogical:
            return raw == " " && !reads("empty_logical=blank") ? "F" : raw;
        case FieldForm::kText:
            return is_converted(target.table, target.field) ? to_ansi(raw) : raw;
        default:
            fail(kWrongType, "the text of this type is not known here");
    }
}

// -- Values from the program's text.

// In the date format of the process. Years of two digits are in the 1900s.
Date parse_date(std::string_view text) {
    const std::string& format = process().date_format;
    if (text.find_first_of("0123456789") == std::string_view::npos) return {};
    if (text.size() != format.size()) fail(kBadMonth, "the date is not in the date format");
    std::array<int, 4> parts{};
    for (std::size_t i = 0; i < format.size(); ++i) {
        const std::size_t part = date_part(format[i]);
        if (part == std::string_view::npos) continue;
        if (text[i] < '0' || text[i] > '9') fail(kBadMonth, "the date is not in the date format");
        parts[part] = parts[part] * 10 + (text[i] - '0');
    }
    const auto& [century, year, month, day] = parts;
    constexpr int kCentury = 19;
    const int first_year = (century == 0 ? kCentury : century) * kCenturyYears;
    if (month < 1 || month > 12) fail(kBadMonth, "no such month");
    const Date date = Date::from_civil(first_year + year, month, day);
    if (date.empty()) fail(5079, "no such day");
    return date;
}

Value number_in(std::string_view text, const record::Field& field) {
    std::string_view digits = trim_both(text);
    if (digits.starts_with('+')) digits.remove_prefix(1);
    double number = 0;
    const auto end = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (end.ec != std::errc() || end.ptr != digits.data() + digits.size()) {
        fail(kTruncated, "not a number");
    }
    std::string fitting(field.width, ' ');
    if (field.kind->form == FieldForm::kDecimal &&
        !write_fixed(number, field.width, field.decimals, fitting.data())) {
        fail(5003, "the number is too wide for the field");
    }
    return Number{number, static_cast<int>(field.width), static_cast<int>(field.decimals)};
}

Value logical_in(std::string_view text) {
    const char letter = text.size() == 1 ? upper_letter(text[0]) : '?';
    if (std::string_view("TY1").find(letter) != std::string_view::npos) return true;
    if (std::string_view("FN0").find(letter) != std::string_view::npos) return false;
    fail(kTruncated, "not a logical");
}

// Text of a character field; a wider one is refused or, in the other reading, cut.
Value text_in(std::string_view text, const record::Field& field) {
    if (text.size() > field.width && reads("long_text=refused")) {
        fail(5003, "the text is too long for the field");
    }
    return text.substr(0, field.width);
}

Value value_in(std::string_view text, const record::Field& field) {
    switch (field.kind->form) {
        case FieldForm::kDate:
            return parse_date(text);
        case FieldForm::kLogical:
            return logical_in(text);
        case FieldForm::kDateTime:
            return parse_date(text).to_ymd() + "000000000";
        case FieldForm::kText:
        case FieldForm::kVariableText:
            return text_in(text, field);
        default:
            return number_in(text, field);
    }
}

void set_empty(const Target& target) {
    const FieldForm form = target.field.kind->form;
    if (target.field.is_memo()) return target.table.set_memo(target.position, {});
    if (form == FieldForm::kDecimal && reads("empty_number=zero")) return target.put(Number{0});
    if (form == FieldForm::kLogical && reads("empty_logical=false")) return target.put(false);
    target.put({});
}

void set_field(const Target& target, std::string_view text) {
    const record::Field& field = target.field;
    const std::string own = is_converted(target.table, field) ? to_oem(text) : std::string(text);
    if (field.is_memo()) {
        const bool cut = field.type == 'M' && reads("memo_zero=cut");
        const std::size_t length = cut ? own.find('\0') : std::string::npos;
        return target.table.set_memo(target.position, own.substr(0, length));
    }
    if (trim_both(own).empty() && !is_text(field)) return set_empty(target);
    target.put(value_in(own, field));
}

std::size_t memo_length(const Target& target) {
    if (!target.field.is_memo()) fail(kWrongType, "not a memo field");
    return memo_text(target).size();
}

// The text of a memo that may be read and written as binary data.
std::string binary_data(const Target& target) {
    const bool refused = target.field.type == 'M' && reads("memo_binary=refused");
    if (!target.field.is_memo() || refused) fail(kWrongType, "not a binary field");
    return target.table.memo(target.position);
}

void set_binary(const Target& target, U16 type, U32 total, U32 offset, std::string_view piece) {
    std::string text = binary_data(target);
    require(type >= 5 && type <= 7, "an unknown type of binary data");
    require(std::uint64_t{offset} + piece.size() <= total, "the piece lies outside the data");
    text.resize(total);
    std::ranges::copy(piece, text.begin() + offset);
    target.table.write_memo_now(target.position, text);
}

// A piece of the data, as much as the buffer holds.
void give_binary(const Target& target, U32 offset, void* data, U32* size) {
    const std::string text = binary_data(target);
    require(size != nullptr && offset <= text.size(), "the piece lies outside the data");
    give_text(std::string_view(text).substr(offset, *size), data, size, Ending::kNone);
}

void give_image(const ClientTable& table, void* record, U32* size) {
    table.require_record();
    give_text(as_text(table.image()), record, size, Ending::kNone);
}

std::string trimmed(std::string text, U16 trim) {
    require(trim <= (kTrimLeft | kTrimRight), "an unknown trim option");
    if ((trim & kTrimRight) != 0) text = trim_right(text);
    if ((trim & kTrimLeft) != 0) text.erase(0, text.find_first_not_of(' '));
    return text;
}

void give_field(const Target& target, void* data, U32* size, U16 trim) {
    give_text(trimmed(field_text(target), trim), data, size);
}

}  // namespace

std::string to_oem(std::string_view ansi) {
    std::string oem(ansi);
    for (char& c : oem) {
        if (static_cast<Byte>(c) < 0x80) continue;
        const std::size_t found = kAnsiOfOem.find(c);
        c = found == std::string_view::npos ? '?' : static_cast<char>(found + 0x80);
    }
    return oem;
}

// -- Exports.

STAND_IN(AdsGetField, (Handle table, const char* field, void* data, U32* size, U16 trim),
         (table, field, size, trim), give_field({table, field}, data, size, trim))
STAND_IN(AdsSetField, (Handle table, const char* field, const void* data, U32 length),
         (table, field, length), set_field({table, field}, data_argument(data, length)))
STAND_IN(AdsSetEmpty, (Handle table, const char* field), (table, field), set_empty({table, field}))
STAND_IN(AdsGetMemoLength, (Handle table, const char* field, U32* length), (table, field, length),
         give(length, memo_length({table, field})))
STAND_IN(AdsGetBinaryLength, (Handle table, const char* field, U32* length), (table, field, length),
         give(length, binary_data({table, field}).size()))
STAND_IN(AdsGetBinary, (Handle table, const char* field, U32 offset, void* data, U32* size),
         (table, field, offset, size), give_binary({table, field}, offset, data, size))
STAND_IN(AdsSetBinary,
         (Handle table, const char* field, U16 type, U32 total, U32 offset, const void* data,
          U32 size),
         (table, field, type, total, offset, size),
         set_binary({table, field}, type, total, offset, data_argument(data, size)))
STAND_IN(AdsGetRecord, (Handle table, void* record, U32* size), (table, size),
         give_image(table_of(table), record, size))
STAND_IN(AdsSetRecord, (Handle table, const void* record, U32 size), (table, size),
         table_of(table).set_image(data_argument(record, size)))

}  // namespace brenik::stand_in
