// Reads arguments from JSON and writes values back.

#include "call_arguments.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

#include "util/runtime.h"

namespace brenik::tools {
namespace {

using Json = nlohmann::ordered_json;

// Upper bound of whole numbers that a double holds exactly.
constexpr double kLargestWhole = 9007199254740992.0;
// Bounds recursion into a line, so that it cannot overflow the stack.
constexpr int kMostNesting = 1000;
// No routine needs a wider text; a far wider one would exhaust memory.
constexpr std::size_t kWidest = 65535;

bool is_printable_ascii(std::string_view text) {
    return std::ranges::all_of(text, [](char each) { return each >= ' ' && each <= '~'; });
}

std::string to_hex(std::string_view bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string digits;
    for (const char each : bytes) {
        const auto byte = static_cast<unsigned char>(each);
        digits += {kDigits[byte >> 4], kDigits[byte & 15]};
    }
    return digits;
}

std::string from_hex(const std::string& digits) {
    if (digits.size() % 2 != 0) throw CallError("hex text needs two digits per byte");
    std::string bytes;
    for (std::size_t at = 0; at < digits.size(); at += 2) {
        unsigned byte = 0;
        const char* first = digits.data() + at;
        if (std::from_chars(first, first + 2, byte, 16).ptr != first + 2) {
            throw CallError("\"" + digits.substr(at, 2) + "\" is not a pair of hex digits");
        }
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

Date date_from_text(const std::string& text) {
    const Date date = Date::from_ymd(text);
    if (date.empty() && !text.empty()) throw CallError("\"" + text + "\" is not a date YYYYMMDD");
    return date;
}

std::string plain_text(const Json& json) {
    if (!json.is_string()) throw CallError("a string was expected, not " + json.dump());
    return json.get<std::string>();
}

std::string text_from_json(const Json& json) {
    if (json.is_object() && json.size() == 1 && json.contains("hex")) {
        return from_hex(plain_text(json["hex"]));
    }
    std::string text = plain_text(json);
    if (std::ranges::any_of(text, [](char each) { return static_cast<unsigned char>(each) > 127; }))
        throw CallError("text beyond ASCII must be written as {\"hex\": ...}, byte by byte");
    return text;
}

Value number_from_json(const Json& json) {
    const std::string text = json.dump();
    if (text.find_first_of("eE") == std::string::npos) return numeric_value(text);
    return Number{json.get<double>()};
}

Value object_from_json(const Json& json) {
    if (json.size() == 1 && json.contains("hex")) return text_from_json(json);
    if (json.size() == 1 && json.contains("date")) return date_from_text(plain_text(json["date"]));
    if (json.size() == 1 && json.contains("memo")) return Memo{text_from_json(json["memo"])};
    throw CallError("not a value: " + json.dump());
}

Json text_to_json(const std::string& text) {
    if (is_printable_ascii(text)) return text;
    return Json{{"hex", to_hex(text)}};
}

Json number_to_json(double amount) {
    if (!std::isfinite(amount)) return nullptr;
    if (std::trunc(amount) == amount && std::abs(amount) <= kLargestWhole) {
        return static_cast<std::int64_t>(amount);
    }
    return amount;
}

Json date_to_json(Date date) { return Json{{"date", date.empty() ? "" : date.to_ymd()}}; }

std::string place(std::size_t index) { return "argument " + std::to_string(index + 1); }

}  // namespace

Json json_from_line(const std::string& line) {
    const auto limit_depth = [](int depth, Json::parse_event_t, const Json&) {
        if (depth > kMostNesting) throw CallError("arrays are nested too deeply");
        return true;
    };
    try {
        return Json::parse(line, limit_depth);
    } catch (const Json::parse_error& error) {
        throw CallError("this line is not JSON: it goes wrong at byte " +
                        std::to_string(error.byte));
    } catch (const Json::out_of_range&) {
        throw CallError("a number in this line is too large");
    }
}

Value value_from_json(const Json& json) {
    if (json.is_null()) return {};
    if (json.is_boolean()) return json.get<bool>();
    if (json.is_number()) return number_from_json(json);
    if (json.is_string()) return text_from_json(json);
    if (json.is_object()) return object_from_json(json);
    Array elements;
    for (const Json& each : json) elements.push_back(value_from_json(each));
    return Value::array(std::move(elements));
}

Json value_to_json(const Value& value) {
    switch (value.kind()) {
        case ValueKind::kNil:
            return nullptr;
        case ValueKind::kLogical:
            return value.logical();
        case ValueKind::kNumber:
            return number_to_json(value.number());
        case ValueKind::kCharacter:
        case ValueKind::kMemo:
            return text_to_json(value.text());
        case ValueKind::kDate:
            return date_to_json(value.date());
        case ValueKind::kArray:
            break;
    }
    Json elements = Json::array();
    if (value.array()) {
        for (const Value& each : *value.array()) elements.push_back(value_to_json(each));
    }
    return elements;
}

CallArguments::CallArguments(Session& session, const Json& line) : session_(session) {
    for (std::size_t index = 1; index < line.size(); ++index) read(line[index]);
}

void CallArguments::read(const Json& json) {
    const bool form = json.is_object() && json.size() == 1;
    if (form && json.contains("ref")) {
        reference_positions_.push_back(values_.size());
        values_.push_back(value_from_json(json["ref"]));
    } else if (form && json.contains("record")) {
        const Value area = value_from_json(json["record"]);
        records_.emplace_back(values_.size(),
                              BufferedRecord(session_, static_cast<int>(area.whole())));
        values_.emplace_back();
    } else {
        values_.push_back(value_from_json(json));
    }
}

bool CallArguments::given(std::size_t index) const {
    return index < values_.size() && !values_[index].is_nil();
}

Value CallArguments::value(std::size_t index) const {
    return index < values_.size() ? values_[index] : Value();
}

const Value& CallArguments::wanted(std::size_t index, bool fits, const char* kind) const {
    if (!given(index)) throw CallError(place(index) + " is missing");
    if (!fits) throw CallError(place(index) + " must be " + kind);
    return values_[index];
}

const Value& CallArguments::of_kind(std::size_t index, ValueKind kind, const char* name) const {
    return wanted(index, value(index).kind() == kind, name);
}

std::string CallArguments::text(std::size_t index) const {
    return wanted(index, value(index).is_text(), "text").text();
}

std::string CallArguments::text(std::size_t index, const std::string& fallback) const {
    return given(index) ? text(index) : fallback;
}

Number CallArguments::number_form(std::size_t index) const {
    return of_kind(index, ValueKind::kNumber, "a number").number_form();
}

double CallArguments::number(std::size_t index) const { return number_form(index).amount; }

double CallArguments::number(std::size_t index, double fallback) const {
    return given(index) ? number(index) : fallback;
}

std::int64_t CallArguments::whole(std::size_t index) const {
    return of_kind(index, ValueKind::kNumber, "a number").whole();
}

std::int64_t CallArguments::whole(std::size_t index, std::int64_t fallback) const {
    return given(index) ? whole(index) : fallback;
}

int CallArguments::small(std::size_t index) const {
    using Limits = std::numeric_limits<int>;
    const std::int64_t number = whole(index);
    wanted(index, number >= Limits::min() && number <= Limits::max(), "a number of 32 bits");
    return static_cast<int>(number);
}

int CallArguments::small(std::size_t index, int fallback) const {
    return given(index) ? small(index) : fallback;
}

std::size_t CallArguments::size(std::size_t index) const {
    const std::int64_t number = whole(index);
    wanted(index, number >= 0 && number <= std::numeric_limits<std::int32_t>::max(),
           "a number from 0 up");
    return static_cast<std::size_t>(number);
}

std::size_t CallArguments::size(std::size_t index, std::size_t fallback) const {
    return given(index) ? size(index) : fallback;
}

std::size_t CallArguments::width(std::size_t index, std::size_t fallback) const {
    if (!given(index)) return fallback;
    const std::size_t width = size(index);
    wanted(index, width <= kWidest, "a width of at most 65535");
    return width;
}

bool CallArguments::logical(std::size_t index) const {
    return of_kind(index, ValueKind::kLogical, "true or false").logical();
}

bool CallArguments::logical(std::size_t index, bool fallback) const {
    return given(index) ? logical(index) : fallback;
}

Date CallArguments::date(std::size_t index) const {
    return of_kind(index, ValueKind::kDate, "a date").date();
}

ArrayReference CallArguments::array(std::size_t index) const {
    return of_kind(index, ValueKind::kArray, "an array").array();
}

RecordObject* CallArguments::record(std::size_t index) {
    const auto found = std::ranges::find(records_, index, &decltype(records_)::value_type::first);
    if (found != records_.end()) return &found->second;
    if (given(index)) throw CallError(place(index) + " must be {\"record\": work area}");
    return nullptr;
}

std::optional<std::string> CallArguments::optional_text(std::size_t index) const {
    return given(index) ? std::optional(text(index)) : std::nullopt;
}

std::optional<int> CallArguments::optional_small(std::size_t index) const {
    return given(index) ? std::optional(small(index)) : std::nullopt;
}

std::optional<double> CallArguments::optional_number(std::size_t index) const {
    return given(index) ? std::optional(number(index)) : std::nullopt;
}

std::optional<bool> CallArguments::optional_logical(std::size_t index) const {
    return given(index) ? std::optional(logical(index)) : std::nullopt;
}

void CallArguments::give_back(std::size_t index, const Value& value) {
    if (index < values_.size()) values_[index] = value;
}

Json CallArguments::references() const {
    Json references = Json::array();
    for (const std::size_t index : reference_positions_) {
        references.push_back(value_to_json(values_[index]));
    }
    return references;
}

}  // namespace brenik::tools
