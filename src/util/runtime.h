// The general functions on text and values that the library relies on.
//
// Operations, journal and trace depend on their exact behaviour. Positions count from 1, as
// everywhere in the system's vocabulary. A negative count counts as 0.

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "util/value.h"

namespace brenik {

// Pads text on the right with blanks, or cuts it, to exactly `width` characters.
std::string pad_right(std::string_view text, std::size_t width);
std::string_view trim_right(std::string_view text);  // trailing blanks only
std::string_view trim_both(std::string_view text);   // leading and trailing blanks
std::string replace_all(std::string_view text, std::string_view search, std::string_view by);
// "1 record", "2 records".
std::string counted(std::uint64_t number, const std::string& noun);
// These change and compare the letters a to z only.
constexpr char upper_letter(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}
std::string upper(std::string_view text);
// In the header, because fields and aliases are found by it, and most names differ in length.
constexpr bool equal_ignoring_case(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return upper_letter(x) == upper_letter(y); });
}
// True when `text` begins with `prefix`; an empty prefix always matches.
bool begins_with(std::string_view text, std::string_view prefix);
// `count` characters from a start that counts from 1; empty text if the start is beyond the end.
std::string_view substring(std::string_view text, std::size_t start,
                           std::size_t count = std::string_view::npos);
// Position of the first occurrence, counted from 1; 0 if there is none. Case-sensitive.
std::size_t position(std::string_view search, std::string_view text);

// The number at the front of a text, after leading blanks: sign, digits, one point. 0 if there is
// none. The result has the decimals of the text, and its width or kWholeNumberWidth, whichever is
// greater.
Number numeric_value(std::string_view text);

// Default text form: right-aligned in the number's width, with its decimals. Asterisks if the
// number does not fit.
std::string number_text(const Number& number);
std::string number_text(const Number& number, int width, int decimals);
// The default text form without blanks on either side.
std::string trimmed_number(const Number& number);

// Formats `amount` in `width` as a field of type N holds it, rounded half away from zero to
// `decimals`. Empty if it does not fit. Rounds the shortest decimal form, so 1.005 gives 1.01.
// Drops a leading zero if the width is one too small.
std::string fixed_text(double amount, int width, int decimals);

// A signed 16-bit integer as 2 bytes, least significant first; and the integer of the first 2
// bytes.
std::string int16_text(std::int64_t number);
std::int16_t int16_from_text(std::string_view text);

}  // namespace brenik
