// Decimal numbers in plain bytes, read and written without allocation.

#pragma once

#include <cstddef>
#include <string_view>

namespace brenik {

// The number at the front of a text, after leading blanks: sign, digits, point, exponent. 0 if
// there is none or a double cannot hold it.
double leading_number(std::string_view text);

// Writes `number` right-aligned into `width` characters at `out`, with exactly `decimals` decimals.
// Rounds the shortest decimal form half away from zero: 1.005 becomes 1.01, as readers of the field
// expect. Writes nothing and returns false if the number is too wide or not finite.
bool write_fixed(double number, std::size_t width, std::size_t decimals, char* out);

// Like write_fixed, but never fails: a number that is too wide loses decimals, then becomes
// asterisks. A number that is not finite counts as 0.
void write_decimal(double number, std::size_t width, std::size_t decimals, char* out);

}  // namespace brenik
