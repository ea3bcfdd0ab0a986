// The fixed set of general functions on text and values that the logic relies on.
//
// They are plain functions over std::string and Value with the exact behaviour that the record
// operations, the journal and the trace take for granted. Positions are 1-based, as everywhere in
// the system's own vocabulary; counts below 0 count as 0.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "util/value.h"

namespace brenik {

// Text padded on the right with blanks, or cut, to exactly `width` characters.
std::string pad_right(std::string_view text, std::size_t width);
std::string_view trim_right(std::string_view text);  // trailing blanks only
std::string_view trim_both(std::string_view text);   // leading and trailing blanks
std::string replace_all(std::string_view text, std::string_view search, std::string_view by);
std::string upper(std::string_view text);                          // a to z only
bool equal_ignoring_case(std::string_view a, std::string_view b);  // a to z only
// True when `text` begins with `prefix`; an empty prefix always matches.
bool begins_with(std::string_view text, std::string_view prefix);
// Characters from a 1-based start for `count`; a start beyond the end gives empty text.
std::string_view substring(std::string_view text, std::size_t start,
                           std::size_t count = std::string_view::npos);
// 1-based position of the first occurrence, 0 when absent; case-sensitive.
std::size_t position(std::string_view search, std::string_view text);

// A leading number after leading blanks: sign, digits, one point; 0 when there is none. Decimals of
// the text are kept as the number's decimals; width is the whole-number width, or as many
// characters as the number had where that is more.
Number numeric_value(std::string_view text);

// Default text form: whole numbers right-aligned in their width, numbers with decimals with their
// own width and decimals; asterisks when the number does not fit.
std::string number_text(const Number& number);
std::string number_text(const Number& number, int width, int decimals);
// The default text form without blanks on either side.
std::string trimmed_number(const Number& number);

// Rounds half away from zero to `decimals` and formats in `width`, as fields of type N hold it; a
// result that does not fit gives an empty string. Rounding looks at the decimal digits that a
// person would write, so 1.005 gives 1.01; a leading zero gives way where the width is one too
// small.
std::string fixed_text(double amount, int width, int decimals);

// A signed 16-bit integer as 2 bytes, least significant first, and back (the first 2 bytes).
std::string int16_text(std::int64_t number);
std::int16_t int16_from_text(std::string_view text);

}  // namespace brenik
