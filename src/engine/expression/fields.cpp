// Decoding fields for expressions. Whatever bytes a field holds, it has a value: what cannot be
// read is 0, the empty date or false.

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

// A value shorter than its field has its length in the field's last byte.
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
    char type;
    std::uint32_t width;  // the only one it may have; 0 for any
    ResultType result;
    Routine routine;
};

constexpr FieldRule kFieldRules[] = {
    {'C', 0, ResultType::kCharacter, load_field<load_text>},
    {'V', 0, ResultType::kCharacter, load_field<load_variable_text>},
    {'Q', 0, ResultType::kCharacter, load_field<load_variable_text>},
    {'N', 0, ResultType::kNumber, load_field<load_number>},
    {'F', 0, ResultType::kNumber, load_field<load_number>},
    {'I', 4, ResultType::kNumber, load_field<load_integer>},
    {'B', 8, ResultType::kNumber, load_field<load_double>},
    {'Y', 8, ResultType::kNumber, load_field<load_currency>},
    {'D', 8, ResultType::kDate, load_field<load_date>},
    {'T', 8, ResultType::kDateTime, load_field<load_date_time>},
    {'L', 1, ResultType::kLogical, load_field<load_logical>},
};

constexpr std::string_view kMemoTypes = "MGPWB";  // B is one where it is 10 wide

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

FieldLoad field_load(const record::Field& field, const record::TableLayout& layout) {
    const auto* rule =
        std::find_if(std::begin(kFieldRules), std::end(kFieldRules), [&](const FieldRule& each) {
            return each.type == field.type && (each.width == 0 || each.width == field.width);
        });
    if (rule == std::end(kFieldRules)) {
        const bool memo = kMemoTypes.find(field.type) != std::string_view::npos;
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
