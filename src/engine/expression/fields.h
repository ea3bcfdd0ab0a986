// Which fields an expression may use, and how their bytes become values.

#pragma once

#include "engine/expression/program.h"

namespace brenik::expression {

struct FieldLoad {
    Operand operand;
    Routine routine = nullptr;
    FieldPlace place;
};

// Throws ExpressionError for memo fields, unknown types and fields that lie outside the record.
FieldLoad field_load(const record::Field& field, const record::TableLayout& layout);

// Combines the two numbers of a date-time field to day and fraction, rounded to whole seconds.
double date_time_number(std::int32_t julian_day, std::int32_t milliseconds);
// The same for text of 17 digits, YYYYMMDDhhmmssttt; 0 if it is blank.
inline constexpr std::size_t kDateTimeDigits = 17;
double date_time_number(std::string_view digits);

}  // namespace brenik::expression
