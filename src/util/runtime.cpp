// Text and number functions, independent of the host's locale.

#include "util/runtime.h"

#include "util/decimal_text.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace brenik {

namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }

std::size_t count_digits(std::string_view text) {
    return static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), is_digit) -
                                    text.begin());
}

// The value of digits with an optional point; infinity if there are too many digits before the
// point.
double decimal_amount(std::string_view text) {
    double amount = 0;
    const auto result =
        std::from_chars(text.data(), text.data() + text.size(), amount, std::chars_format::fixed);
    if (result.ec != std::errc::result_out_of_range) return amount;
    const bool large =
        text.substr(0, count_digits(text)).find_first_not_of('0') != std::string_view::npos;
    return large ? std::numeric_limits<double>::infinity() : 0;
}

}  // namespace

std::string pad_right(std::string_view text, std::size_t width) {
    std::string padded(text.substr(0, width));
    padded.resize(width, ' ');
    return padded;
}

std::string_view trim_right(std::string_view text) {
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

std::string_view trim_both(std::string_view text) {
    const std::string_view trimmed = trim_right(text);
    return trimmed.substr(std::min(trimmed.find_first_not_of(' '), trimmed.size()));
}

std::string replace_all(std::string_view text, std::string_view search, std::string_view by) {
    if (search.empty()) return std::string(text);
    std::string result;
    std::size_t start = 0;
    for (std::size_t at; (at = text.find(search, start)) != std::string_view::npos;
         start = at + search.size()) {
        result.append(text.substr(start, at - start)).append(by);
    }
    return result.append(text.substr(start));
}

std::string counted(std::uint64_t number, const std::string& noun) {
    return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

std::string upper(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), upper_letter);
    return result;
}

bool begins_with(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

std::string_view substring(std::string_view text, std::size_t start, std::size_t count) {
    const std::size_t first = start > 0 ? start - 1 : 0;
    return first < text.size() ? text.substr(first, count) : std::string_view();
}

std::size_t position(std::string_view search, std::string_view text) {
    return search.empty() ? 0 : text.find(search) + 1;  // npos + 1 is 0
}

Number numeric_value(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    const std::size_t sign = !text.empty() && (text[0] == '-' || text[0] == '+') ? 1 : 0;
    const std::string_view digits = text.substr(sign);
    const std::size_t whole = count_digits(digits);
    const bool has_point = whole < digits.size() && digits[whole] == '.';
    const std::size_t decimals = has_point ? count_digits(digits.substr(whole + 1)) : 0;
    if (whole + decimals == 0) return {};
    const std::size_t length = whole + (decimals > 0 ? 1 + decimals : 0);
    const double amount = decimal_amount(digits.substr(0, length));
    return {text[0] == '-' && amount != 0 ? -amount : amount,
            std::max(kWholeNumberWidth, static_cast<int>(sign + length)),
            static_cast<int>(decimals)};
}

std::string number_text(const Number& number) {
    return number_text(number, number.width, number.decimals);
}

std::string number_text(const Number& number, int width, int decimals) {
    if (width <= 0) return {};
    const std::string text = fixed_text(number.amount, width, decimals);
    return text.empty() ? std::string(static_cast<std::size_t>(width), '*') : text;
}

std::string trimmed_number(const Number& number) {
    return std::string(trim_both(number_text(number)));
}

std::string fixed_text(double amount, int width, int decimals) {
    if (width <= 0) return {};
    const auto room = static_cast<std::size_t>(width);
    const auto kept = static_cast<std::size_t>(std::max(decimals, 0));
    std::string text(room + 1, ' ');
    if (write_fixed(amount, room, kept, text.data())) {
        text.resize(room);
        return text;
    }
    // A field of width 3 with 2 decimals has no room for the leading zero and omits it.
    if (kept == 0 || !write_fixed(amount, room + 1, kept, text.data())) return {};
    const std::size_t zero = text[0] == '-' ? 1 : 0;
    if (text[zero] != '0') return {};
    text.erase(zero, 1);
    return text;
}

std::string int16_text(std::int64_t number) {
    return {static_cast<char>(number & 0xFF), static_cast<char>(number >> 8 & 0xFF)};
}

std::int16_t int16_from_text(std::string_view text) {
    const auto byte = [text](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
    };
    return static_cast<std::int16_t>(byte(0) | byte(1) << 8);
}

}  // namespace brenik
