// Refuses what is not entirely of the type: read as 0, as no date or as false, it would find a
// record with another key.

#include "seek_key.h"

#include <charconv>
#include <cmath>
#include <optional>

#include "engine/expression/expression.h"
#include "practice.h"
#include "util/runtime.h"

namespace brenik::tools {
namespace {

using expression::ResultType;

std::optional<Value> number_key(std::string_view given) {
    const bool positive = given.starts_with('+') && !given.starts_with("+-");
    const std::string_view digits = given.substr(positive ? 1 : 0);
    const char* const end = digits.data() + digits.size();
    Number number;
    const auto read = std::from_chars(digits.data(), end, number.amount);
    if (read.ec != std::errc() || read.ptr != end) return std::nullopt;
    if (!std::isfinite(number.amount)) return std::nullopt;
    return number;
}

std::optional<Value> date_key(const std::string& given) {
    const Date date = Date::from_ymd(replace_all(given, "-", ""));
    if (date.empty() && !given.empty()) return std::nullopt;
    return date;
}

std::optional<Value> date_time_key(const std::string& given) {
    constexpr std::size_t kDate = 8, kWithTime = 14, kAll = 17;
    std::string digits;
    for (const char c : given) {
        if (std::string_view("-: .").find(c) == std::string_view::npos) digits += c;
    }
    if (given.empty()) return std::string(kAll, ' ');
    const std::size_t size = digits.size();
    const bool only_digits = digits.find_first_not_of("0123456789") == std::string::npos;
    if (!only_digits || (size != kDate && size != kWithTime && size != kAll)) return std::nullopt;
    digits.resize(kAll, '0');
    const bool possible = !Date::from_ymd(digits.substr(0, kDate)).empty() &&
                          digits.substr(8, 2) < "24" && digits.substr(10, 2) < "60" &&
                          digits.substr(12, 2) < "60";
    return possible ? std::optional<Value>(digits) : std::nullopt;
}

std::optional<Value> logical_key(const std::string& given) {
    const bool is_true = equal_ignoring_case(given, "true");
    if (!is_true && !equal_ignoring_case(given, "false")) return std::nullopt;
    return is_true;
}

Value text_key(const std::string& given, const TableText& text) {
    if (auto bytes = text.bytes_of(given)) return *std::move(bytes);
    throw ToolError(ExitCode::kProblem, "code page " + std::to_string(text.code_page()) +
                                            " has no \"" + given +
                                            "\", so no record can have this key");
}

}  // namespace

Value seek_key(const Table& table, const std::string& given, const TableText& text) {
    const std::string expression = table.order_description(table.order_number()).key;
    const auto checked = [&](const std::optional<Value>& key, const char* form) -> Value {
        if (key) return *key;
        throw ToolError(ExitCode::kUsage, "--seek \"" + given + "\": the order's keys are " + form);
    };
    const std::string trimmed(trim_both(given));
    switch (expression::Expression::compile(expression, table.layout()).type()) {
        case ResultType::kNumber:
            return checked(number_key(trimmed), "numbers, such as 12.5");
        case ResultType::kDate:
            return checked(date_key(trimmed), "dates, such as 2024-02-29");
        case ResultType::kDateTime:
            return checked(date_time_key(trimmed), "date-times, such as 2024-02-29 10:30:45");
        case ResultType::kLogical:
            return checked(logical_key(trimmed), "true and false");
        case ResultType::kCharacter:
            break;
    }
    return text_key(given, text);
}

}  // namespace brenik::tools
