// Decimal numbers on top of <charconv>, which never consults the locale.

#include "util/decimal_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>

namespace brenik {
namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// A decimal number as 0.ddd * 10^exponent. Rounding works on these digits, not on the binary value,
// so that 2.675 rounds to 2.68, as readers of the field expect.
struct DecimalDigits {
    std::array<char, 32> digits{};
    int count = 0;
    int exponent = 0;
    bool negative = false;

    explicit DecimalDigits(double number);
    void round_to(int decimals);
    char digit(int at) const {
        return at >= 0 && at < count ? digits[static_cast<size_t>(at)] : '0';
    }
};

DecimalDigits::DecimalDigits(double number) : negative(number < 0) {
    std::array<char, 32> buffer{};
    const auto written = std::to_chars(buffer.data(), buffer.data() + buffer.size(),
                                       std::fabs(number), std::chars_format::scientific);
    const char* at = buffer.data();
    for (; at < written.ptr && *at != 'e'; ++at) {
        if (is_digit(*at)) digits[static_cast<size_t>(count++)] = *at;
    }
    if (at + 1 < written.ptr) std::from_chars(at + (at[1] == '+' ? 2 : 1), written.ptr, exponent);
    ++exponent;
    if (number == 0) count = exponent = 0;
}

void DecimalDigits::round_to(int decimals) {
    const int kept = exponent + decimals;
    if (kept >= count) return;
    const bool up = kept >= 0 && digit(kept) >= '5';
    count = std::max(kept, 0);
    if (!up) return;
    while (count > 0 && digits[static_cast<size_t>(count - 1)] == '9') --count;
    if (count > 0) {
        ++digits[static_cast<size_t>(count - 1)];
        return;
    }
    digits[0] = '1';
    count = 1;
    ++exponent;
}

bool fits(const DecimalDigits& number, std::size_t width, int decimals) {
    const int whole = std::max(number.exponent, 1);
    const bool sign = number.negative && number.count > 0;
    const int length = whole + (sign ? 1 : 0) + (decimals > 0 ? decimals + 1 : 0);
    return static_cast<std::size_t>(length) <= width;
}

void put(const DecimalDigits& number, std::size_t width, int decimals, char* out) {
    char* at = out + width;
    for (int i = decimals - 1; i >= 0; --i) *--at = number.digit(number.exponent + i);
    if (decimals > 0) *--at = '.';
    int whole = number.exponent;
    do {
        *--at = number.digit(--whole);
    } while (whole > 0);
    if (number.negative && number.count > 0) *--at = '-';
    std::fill(out, at, ' ');
}

}  // namespace

double leading_number(std::string_view text) {
    const std::size_t start = text.find_first_not_of(" \t");
    if (start == std::string_view::npos) return 0;
    text.remove_prefix(start);
    const bool negative = text.front() == '-';
    if (negative || text.front() == '+') text.remove_prefix(1);
    const bool point = !text.empty() && text.front() == '.';
    if (text.size() <= (point ? 1U : 0U) || !is_digit(text[point ? 1 : 0])) return 0;
    double number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return negative ? -number : number;
}

bool write_fixed(double number, std::size_t width, std::size_t decimals, char* out) {
    if (!std::isfinite(number) || decimals > width) return false;
    DecimalDigits rounded(number);
    rounded.round_to(static_cast<int>(decimals));
    if (!fits(rounded, width, static_cast<int>(decimals))) return false;
    put(rounded, width, static_cast<int>(decimals), out);
    return true;
}

void write_decimal(double number, std::size_t width, std::size_t decimals, char* out) {
    const double finite = std::isfinite(number) ? number : 0;
    for (std::size_t kept = std::min(decimals, width);; --kept) {
        if (write_fixed(finite, width, kept, out)) return;
        if (kept == 0) break;
    }
    std::fill_n(out, width, '*');
}

}  // namespace brenik
