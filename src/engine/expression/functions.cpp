// The functions: their arguments, the width of their results, and their routines.

#include "engine/expression/functions.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include "util/decimal_text.h"
#include "util/runtime.h"

namespace brenik::expression {
namespace {

constexpr double kDescendingDates = 5231808;
constexpr double kFirstDay = 1721426;  // 0001-01-01
constexpr double kLastDay = 5373484;   // 9999-12-31
constexpr double kLargestWidth = 65535;
constexpr std::size_t kDateWidth = 8;
constexpr std::size_t kDefaultStrWidth = 10;
constexpr std::size_t kDefaultBinaryWidth = 4;

// -- Widths

std::size_t no_width(std::span<const Operand>) { return 0; }
std::size_t date_width(std::span<const Operand>) { return kDateWidth; }
std::size_t first_width(std::span<const Operand> arguments) { return arguments[0].width; }

std::size_t widest(std::span<const Operand> arguments) {
    std::size_t width = 0;
    for (const Operand& argument : arguments) width = std::max(width, argument.width);
    return width;
}

// Limits a count to the longest possible text, so that no conversion overflows.
std::size_t count_of(double number) {
    return number >= 1 ? static_cast<std::size_t>(std::min(number, kLargestWidth)) : 0;
}

std::size_t constant_width(const Operand& argument) {
    const double width = argument.constant.value_or(0);
    if (!(width >= 1) || width > kLargestWidth) {
        throw ExpressionError("a width must be a number from 1 to 65535, and not computed");
    }
    return static_cast<std::size_t>(width);
}

std::size_t part_width(std::span<const Operand> arguments) {
    const std::optional<double> count = arguments[1].constant;
    return std::min(arguments[0].width, count ? count_of(*count) : arguments[0].width);
}

std::size_t substr_width(std::span<const Operand> arguments) {
    const std::size_t start = count_of(arguments[1].constant.value_or(1));
    const std::size_t skipped = std::min(arguments[0].width, start > 0 ? start - 1 : 0);
    const std::size_t rest = arguments[0].width - skipped;
    if (arguments.size() < 3 || !arguments[2].constant) return rest;
    return std::min(rest, count_of(*arguments[2].constant));
}

std::size_t padded_width(std::span<const Operand> arguments) {
    return constant_width(arguments[1]);
}

std::size_t str_width(std::span<const Operand> arguments) {
    if (arguments.size() == 3 && !arguments[2].constant) {
        throw ExpressionError("the decimals must be a number, and not computed");
    }
    return arguments.size() < 2 ? kDefaultStrWidth : constant_width(arguments[1]);
}

std::size_t binary_width(std::span<const Operand> arguments) {
    if (arguments.size() < 2) return kDefaultBinaryWidth;
    const std::size_t width = constant_width(arguments[1]);
    if (width != 1 && width != 2 && width != 4 && width != 8) {
        throw ExpressionError("a binary integer has 1, 2, 4 or 8 bytes");
    }
    return width;
}

std::size_t dtoc_width(std::span<const Operand> arguments) {
    if (arguments.size() == 2 && arguments[1].constant != 1.0) {
        throw ExpressionError("the second argument can only be 1");
    }
    return kDateWidth;
}

// -- Text

void set_text(Cell* result, std::string_view text) { *result = Cell{.text = text}; }

void map_bytes(const Instruction& step, const Run& run, const record::CaseTable& table,
               Cell* operands) {
    const std::string_view text = operands[0].text;
    char* out = run.slot(step);
    for (std::size_t i = 0; i < text.size(); ++i) out[i] = table[static_cast<Byte>(text[i])];
    set_text(operands, {out, text.size()});
}

void to_upper(const Instruction& step, const Run& run, Cell* operands) {
    map_bytes(step, run, run.program.upper_case, operands);
}

void to_lower(const Instruction& step, const Run& run, Cell* operands) {
    map_bytes(step, run, run.program.lower_case, operands);
}

void trim_end(const Instruction&, const Run&, Cell* operands) {
    set_text(operands, trim_right(operands[0].text));
}

void trim_start(const Instruction&, const Run&, Cell* operands) {
    const std::string_view text = operands[0].text;
    set_text(operands, text.substr(std::min(text.find_first_not_of(' '), text.size())));
}

void trim_both_ends(const Instruction&, const Run&, Cell* operands) {
    set_text(operands, trim_both(operands[0].text));
}

void left_part(const Instruction&, const Run&, Cell* operands) {
    set_text(operands, operands[0].text.substr(0, count_of(operands[1].number)));
}

void right_part(const Instruction&, const Run&, Cell* operands) {
    const std::string_view text = operands[0].text;
    const std::size_t count = std::min(text.size(), count_of(operands[1].number));
    set_text(operands, text.substr(text.size() - count));
}

void middle_part(const Instruction& step, const Run&, Cell* operands) {
    const std::size_t start = std::max<std::size_t>(count_of(operands[1].number), 1);
    const std::string_view rest = substring(operands[0].text, start);
    set_text(operands, step.operands == 2 ? rest : rest.substr(0, count_of(operands[2].number)));
}

// Large enough for any double in plain decimal form.
using PlainNumber = std::array<char, 400>;

std::string_view plain_number(double number, PlainNumber& buffer) {
    const auto written = std::to_chars(buffer.data(), buffer.data() + buffer.size(),
                                       number == 0 ? 0.0 : number, std::chars_format::fixed);
    return {buffer.data(), static_cast<std::size_t>(written.ptr - buffer.data())};
}

enum class PadSide { kLeft, kRight, kBoth };

std::size_t room_before(PadSide side, std::size_t room) {
    if (side == PadSide::kLeft) return room;
    return side == PadSide::kRight ? 0 : room / 2;
}

template <PadSide side>
void pad(const Instruction& step, const Run& run, Cell* operands) {
    PlainNumber buffer;
    std::string_view text = operands[0].text;
    if (step.operand_type == ResultType::kNumber) text = plain_number(operands[0].number, buffer);
    const std::size_t width = count_of(operands[1].number);
    text = text.substr(0, width);
    const bool own_fill = step.operands == 3 && !operands[2].text.empty();
    const char fill = own_fill ? operands[2].text.front() : ' ';
    const std::size_t before = room_before(side, width - text.size());
    char* out = run.slot(step);
    std::fill_n(out, width, fill);
    std::copy(text.begin(), text.end(), out + before);
    set_text(operands, {out, width});
}

// -- Numbers

void str(const Instruction& step, const Run& run, Cell* operands) {
    const std::size_t width = step.operands > 1 ? count_of(operands[1].number) : kDefaultStrWidth;
    const std::size_t decimals = step.operands > 2 ? count_of(operands[2].number) : 0;
    char* out = run.slot(step);
    write_decimal(operands[0].number, width, decimals, out);
    set_text(operands, {out, width});
}

void val(const Instruction&, const Run&, Cell* operands) {
    *operands = Cell{.number = leading_number(operands[0].text)};
}

std::uint64_t truncated_bits(double number) {
    constexpr double kLimit = 9223372036854775808.0;  // 2^63
    if (number >= kLimit) return INT64_MAX;
    if (!(number >= -kLimit)) return static_cast<std::uint64_t>(INT64_MIN);
    return static_cast<std::uint64_t>(static_cast<std::int64_t>(number));
}

void binary_text(const Instruction& step, const Run& run, Cell* operands) {
    const std::size_t width =
        step.operands > 1 ? count_of(operands[1].number) : kDefaultBinaryWidth;
    const std::uint64_t bits = truncated_bits(operands[0].number);
    char* out = run.slot(step);
    for (std::size_t i = 0; i < width; ++i) {
        out[i] = static_cast<char>(bits >> (8 * (width - 1 - i)));
    }
    out[0] = static_cast<char>(static_cast<Byte>(out[0]) ^ 0x80);
    set_text(operands, {out, width});
}

void descend(const Instruction& step, const Run&, Cell* operands) {
    const double number = operands[0].number;
    const bool date = step.operand_type == ResultType::kDate;
    *operands = Cell{.number = date ? kDescendingDates - number : -number};
}

// -- Dates

// Day numbers outside the calendar, which sums can produce, count as empty.
Date date_of(const Cell& cell) {
    const bool real = cell.number >= kFirstDay && cell.number < kLastDay + 1;
    return real ? Date(static_cast<std::int32_t>(cell.number)) : Date();
}

void put_date(const Instruction& step, const Run& run, const std::string& form, Cell* operands) {
    char* out = run.slot(step);
    std::copy_n(form.begin(), kDateWidth, out);
    set_text(operands, {out, kDateWidth});
}

void dtos(const Instruction& step, const Run& run, Cell* operands) {
    put_date(step, run, date_of(operands[0]).to_ymd(), operands);
}

void dtoc(const Instruction& step, const Run& run, Cell* operands) {
    const Date date = date_of(operands[0]);
    put_date(step, run, step.operands == 2 ? date.to_ymd() : date.to_mdy(), operands);
}

void set_date(Cell* result, Date date) {
    *result = Cell{.number = static_cast<double>(date.julian_day())};
}

void ctod(const Instruction&, const Run&, Cell* operands) {
    set_date(operands, Date::from_mdy(trim_both(operands[0].text)));
}

void stod(const Instruction&, const Run&, Cell* operands) {
    set_date(operands, Date::from_ymd(operands[0].text.substr(0, kDateWidth)));
}

template <int CivilDay::*part>
void date_part(const Instruction&, const Run&, Cell* operands) {
    *operands = Cell{.number = static_cast<double>(date_of(operands[0]).civil().*part)};
}

// -- Anything

void set_logical(Cell* result, bool value) { *result = Cell{.number = value ? 1.0 : 0.0}; }

void iif(const Instruction&, const Run&, Cell* operands) {
    const bool yes = !operands[0].is_null && operands[0].number != 0;
    operands[0] = operands[yes ? 1 : 2];
}

void nvl(const Instruction&, const Run&, Cell* operands) {
    if (operands[0].is_null) operands[0] = operands[1];
}

void is_null_value(const Instruction&, const Run&, Cell* operands) {
    set_logical(operands, operands[0].is_null);
}

// NULL is not empty. A date-time is empty when its day is.
void empty(const Instruction& step, const Run&, Cell* operands) {
    const Cell value = operands[0];
    bool blank = false;
    if (step.operand_type == ResultType::kCharacter) {
        blank = value.text.find_first_not_of(" \t\r\n") == std::string_view::npos;
    } else if (step.operand_type == ResultType::kDateTime) {
        blank = std::trunc(value.number) == 0;
    } else {
        blank = value.number == 0;
    }
    set_logical(operands, blank && !value.is_null);
}

void deleted(const Instruction&, const Run& run, Cell* operands) {
    set_logical(operands, run.record.deleted());
}

void recno(const Instruction&, const Run& run, Cell* operands) {
    *operands = Cell{.number = static_cast<double>(run.record.number)};
}

constexpr FunctionRule kFunctions[] = {
    {"ALLTRIM", "C", 1, 'C', first_width, trim_both_ends},
    {"BINTOC", "NN", 1, 'C', binary_width, binary_text, kMakesText},
    {"CTOD", "C", 1, 'D', no_width, ctod},
    {"DAY", "d", 1, 'N', no_width, date_part<&CivilDay::day>},
    {"DELETED", "", 0, 'L', no_width, deleted},
    {"DESCEND", "o", 1, 'N', no_width, descend},
    {"DTOC", "dN", 1, 'C', dtoc_width, dtoc, kMakesText | kFollowsDateForm},
    {"DTOS", "d", 1, 'C', date_width, dtos, kMakesText},
    {"EMPTY", "*", 1, 'L', no_width, empty, kSeesNull},
    {"IIF", "L*=", 3, '2', widest, iif, kSeesNull},
    {"ISNULL", "*", 1, 'L', no_width, is_null_value, kSeesNull},
    {"LEFT", "CN", 2, 'C', part_width, left_part},
    {"LOWER", "C", 1, 'C', first_width, to_lower, kMakesText | kFoldsCase},
    {"LTRIM", "C", 1, 'C', first_width, trim_start},
    {"MONTH", "d", 1, 'N', no_width, date_part<&CivilDay::month>},
    {"NVL", "*=", 2, '1', widest, nvl, kSeesNull},
    {"PADC", "pNC", 2, 'C', padded_width, pad<PadSide::kBoth>, kMakesText},
    {"PADL", "pNC", 2, 'C', padded_width, pad<PadSide::kLeft>, kMakesText},
    {"PADR", "pNC", 2, 'C', padded_width, pad<PadSide::kRight>, kMakesText},
    {"RECNO", "", 0, 'N', no_width, recno},
    {"RIGHT", "CN", 2, 'C', part_width, right_part},
    {"RTRIM", "C", 1, 'C', first_width, trim_end},
    {"STOD", "C", 1, 'D', no_width, stod},
    {"STR", "NNN", 1, 'C', str_width, str, kMakesText},
    {"SUBSTR", "CNN", 2, 'C', substr_width, middle_part},
    {"TRIM", "C", 1, 'C', first_width, trim_end},
    {"UPPER", "C", 1, 'C', first_width, to_upper, kMakesText | kFoldsCase},
    {"VAL", "C", 1, 'N', no_width, val},
    {"YEAR", "d", 1, 'N', no_width, date_part<&CivilDay::year>},
};

constexpr std::size_t kShortestAbbreviation = 4;

}  // namespace

const FunctionRule* find_function(std::string_view name) {
    for (const FunctionRule& each : kFunctions) {
        const bool short_form = name.size() >= kShortestAbbreviation;
        const std::string_view written = short_form ? each.name.substr(0, name.size()) : each.name;
        if (equal_ignoring_case(written, name)) return &each;
    }
    return nullptr;
}

bool suits(char parameter, ResultType type, ResultType type_before) {
    switch (parameter) {
        case '*':
            return true;
        case '=':
            return type == type_before;
        case 'd':
            return type == ResultType::kDate || type == ResultType::kDateTime;
        case 'p':
            return type == ResultType::kCharacter || type == ResultType::kNumber;
        case 'o':
            return type == ResultType::kNumber || type == ResultType::kDate;
        default:
            return type == static_cast<ResultType>(parameter);
    }
}

}  // namespace brenik::expression
