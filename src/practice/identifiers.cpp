// Converts between numbers and digits.

#include "practice/identifiers.h"

#include <algorithm>

#include "util/fault.h"
#include "util/value.h"

namespace brenik::practice {

namespace {

constexpr std::string_view kBase62 =
    "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
constexpr std::string_view kBase26 = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";

std::string to_digits(const char* routine, std::int64_t number, int digits,
                      std::string_view alphabet) {
    const auto base = static_cast<std::int64_t>(alphabet.size());
    std::string text(static_cast<std::size_t>(std::max(digits, 0)), alphabet[0]);
    std::int64_t rest = number;
    for (auto digit = text.rbegin(); digit != text.rend() && rest > 0; ++digit, rest /= base) {
        *digit = alphabet[static_cast<std::size_t>(rest % base)];
    }
    if (rest == 0) return text;
    throw EngineFault(FaultCode::kLimit, routine,
                      "counter " + std::to_string(number) + " does not fit in " +
                          std::to_string(digits) + " digits");
}

// The sum is a double, so that a text of any length cannot overflow it.
std::int64_t from_digits(std::string_view text, std::string_view alphabet) {
    double total = 0;
    for (const char digit : text) {
        const std::size_t index = alphabet.find(digit);
        const double amount = index == std::string_view::npos ? -1 : static_cast<double>(index);
        total = total * static_cast<double>(alphabet.size()) + amount;
    }
    return Value(Number{total}).whole();
}

}  // namespace

std::string RSN2ADS(std::int64_t number, int digits) {
    return to_digits("RSN2ADS", number, digits, kBase62);
}

std::int64_t RSADS2N(std::string_view text) { return from_digits(text, kBase62); }

std::string RSN2ALPHA(std::int64_t number, int digits) {
    return to_digits("RSN2ALPHA", number, digits, kBase26);
}

std::int64_t RSALPHA2N(std::string_view text) { return from_digits(text, kBase26); }

std::string identifier_of(std::string_view prefix, std::int64_t number) {
    return std::string(prefix) + RSN2ADS(number, kIdentifierDigits);
}

std::optional<std::int64_t> number_of(std::string_view prefix, std::string_view identifier) {
    if (identifier.size() != prefix.size() + kIdentifierDigits) return {};
    if (!identifier.starts_with(prefix)) return {};
    const std::string_view digits = identifier.substr(prefix.size());
    if (digits.find_first_not_of(kBase62) != std::string_view::npos) return {};
    return RSADS2N(digits);
}

}  // namespace brenik::practice
