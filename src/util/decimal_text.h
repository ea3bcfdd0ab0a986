// Decimal numbers in plain bytes, read and written without allocation.

#pragma once

#include <cstddef>
#include <string_view>

namespace brenik {

// The number that a text begins with after leading blanks: sign, digits, point, exponent; 0 when it
// begins with none or with one that a double cannot hold.
double leading_number(std::string_view text);

// Writes `number` right-aligned into `width` characters at `out`, rounded to exactly `decimals`
// decimals, half away from zero in its shortest decimal form: 1.005 becomes 1.01, as everybody who
// reads the field expects. False, with nothing written, when it is too wide or not finite.
bool write_fixed(double number, std::size_t width, std::size_t decimals, char* out);

// As write_fixed; but where the number is too wide decimals go first, then asterisks fill the
// width. What is not finite counts as 0.
void write_decimal(double number, std::size_t width, std::size_t decimals, char* out);

}  // namespace brenik
