// Decodes fields for expressions. A field has a value whatever its bytes are: unreadable bytes give
// 0, the empty date or false.

#include "engine/expression/fields.h"

#include <algorithm>
#include <bit>

#include "util/decimal_text.h"

namespace brenik::expression {
namespace {

constexpr double kMillisecondsPerDay = 86400000;
constexpr double kCurrencyScale = 10000;

const Byte* bytes_of(const FieldPlace& place, const Run& run) {
    return run.record.bytes.data() + place.offset;
}

std::string_view text_of(const FieldPlace& place, const Run& run) {
    return as_text({bytes_of(place, run), place.width});
}

void load_text(const FieldPlace& place, const Run& run, Cell& result) {
    result.text = text_of(place, run);
}

// If the bit is set, the field's last byte holds the value's length.
void load_variable_text(const FieldPlace& place, const Run& run, Cell& result) {
    result.text = text_of(place, run);
    if (!place.shorter.is_set(run.record.bytes)) return;
    const auto length = static_cast<Byte>(result.text.back());
    result.text = result.text.substr(0, std::min<std::size_t>(length, place.width - 1));
}

void load_number(const FieldPlace& place, const Run& run, Cell& result) {
    result.number = leading_number(text_of(place, run));
}

void load_integer(const FieldPlace& place, const Run& run, Cell& result) {
    result.number = static_cast<std::int32_t>(load_le32(bytes_of(place, run)));
}

void load_double(const FieldPlace& place, const Run& run, Cell& result) {
    result.number = std::bit_cast<double>(load_le64(bytes_of(place, run)));
}

void load_currency(const FieldPlace& place, const Run& run, Cell& result) {
    const auto scaled = static_cast<std::int64_t>(load_le64(bytes_of(place, run)));
    result.number = static_cast<double>(scaled) / kCurrencyScale;
}

void load_date(const FieldPlace& place, const Run& run, Cell& result) {
    result.number = Date::from_ymd(text_of(place, run)).julian_day();
}

void load_date_time(const FieldPlace& place, const Run& run, Cell& result) {
    const Byte* bytes = bytes_of(place, run);
    result.number = date_time_number(static_cast<std::int32_t>(load_le32(bytes)),
                                     static_cast<std::int32_t>(load_le32(bytes + 4)));
}

void load_logical(const FieldPlace& place, const Run& run, Cell& result) {
    const char c = text_of(place, run).front();
    result.number = c == 'T' || c == 't' || c == 'Y' || c == 'y' ? 1 : 0;
}

using Loader = void (*)(const FieldPlace& place, const Run& run, Cell& result);

template <Loader load>
void load_field(const Instruction& step, const Run& run, Cell* operands) {
    const FieldPlace& place = run.program.fields[step.index];
    *operands = Cell{.is_null = place.null.is_set(run.record.bytes)};
    if (!operands->is_null) load(place, run, *operands);
}

struct FieldRule {
    record::FieldForm form;
    ResultType result;
    Routine routine;
};

using Form = record::FieldForm;
constexpr FieldRule kFieldRules[] = {
    {Form::kText, ResultType::kCharacter, load_field<load_text>},
    {Form::kVariableText, ResultType::kCharacter, load_field<load_variable_text>},
    {Form::kDecimal, ResultType::kNumber, load_field<load_number>},
    {Form::kInteger, ResultType::kNumber, load_field<load_integer>},
    {Form::kDouble, ResultType::kNumber, load_field<load_double>},
    {Form::kCurrency, ResultType::kNumber, load_field<load_currency>},
    {Form::kDate, ResultType::kDate, load_field<load_date>},
    {Form::kDateTime, ResultType::kDateTime, load_field<load_date_time>},
    {Form::kLogical, ResultType::kLogical, load_field<load_logical>},
};

FlagBit flag_bit(const std::optional<std::uint32_t>& bit, const record::TableLayout& layout) {
    if (!bit || !layout.null_flags) return {};
    const record::Field& column = *layout.null_flags;
    const std::uint64_t at = std::uint64_t{column.offset} + *bit / 8;
    if (*bit / 8 >= column.width || at >= layout.record_length) {
        throw ExpressionError("the null flags lie outside the record");
    }
    return {static_cast<std::uint32_t>(at), static_cast<std::uint8_t>(1U << (*bit % 8))};
}

}  // namespace

double date_time_number(std::int32_t julian_day, std::int32_t milliseconds) {
    const std::int64_t rounded = (std::int64_t{milliseconds} + 500) / 1000 * 1000;
    return julian_day + static_cast<double>(rounded) / kMillisecondsPerDay;
}

double date_time_number(std::string_view digits) {
    const Date day = Date::from_ymd(digits.substr(0, 8));
    if (day.empty()) return 0;
    const auto part = [&](std::size_t at, std::size_t length) {
        return static_cast<std::int32_t>(leading_number(digits.substr(at, length)));
    };
    const std::int32_t seconds = part(8, 2) * 3600 + part(10, 2) * 60 + part(12, 2);
    return date_time_number(day.julian_day(), seconds * 1000 + part(14, 3));
}

FieldLoad field_load(const record::Field& field, const record::TableLayout& layout) {
    const record::FieldType* type = record::find_field_type(field.type, field.width);
    const auto* rule =
        std::find_if(std::begin(kFieldRules), std::end(kFieldRules),
                     [&](const FieldRule& each) { return type && each.form == type->form; });
    if (rule == std::end(kFieldRules)) {
        const bool memo = type && type->is_memo();
        throw ExpressionError("field " + field.name + " is " +
                              (memo ? "a memo" : "of type " + std::string(1, field.type)) +
                              ", which no expression may hold");
    }
    if (field.width == 0 || std::uint64_t{field.offset} + field.width > layout.record_length) {
        throw ExpressionError("field " + field.name + " lies outside the record");
    }
    const bool text = rule->result == ResultType::kCharacter;
    return {{rule->result, text ? field.width : 0, {}},
            rule->routine,
            {field.offset, field.width, flag_bit(field.null_bit, layout),
             flag_bit(field.length_bit, layout)}};
}

}  // namespace brenik::expression
