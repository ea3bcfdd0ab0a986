// Converts values to UTF-8 text and JSON.

#include "display.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "util/runtime.h"

namespace brenik::tools {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kDateTimeDigits = 17;

// Code page 1252 from 0x80 to 0x9F; its five undefined bytes map to themselves.
constexpr std::array<std::uint16_t, 32> kCodePage1252 = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

std::size_t sequence_length(unsigned char lead) {
    if (lead < 0x80) return 1;
    if (lead >= 0xC2 && lead <= 0xDF) return 2;
    if (lead >= 0xE0 && lead <= 0xEF) return 3;
    if (lead >= 0xF0 && lead <= 0xF4) return 4;
    return 0;
}

// Rejects overlong forms, surrogates, and code points past the last one.
bool second_byte_fits(unsigned char lead, unsigned char second) {
    if (lead == 0xE0) return second >= 0xA0;
    if (lead == 0xED) return second <= 0x9F;
    if (lead == 0xF0) return second >= 0x90;
    if (lead == 0xF4) return second <= 0x8F;
    return true;
}

bool is_utf8(std::string_view text) {
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = sequence_length(byte(at));
        if (length == 0 || at + length > text.size()) return false;
        for (std::size_t i = 1; i < length; ++i) {
            if ((byte(at + i) & 0xC0) != 0x80) return false;
        }
        if (length > 1 && !second_byte_fits(byte(at), byte(at + 1))) return false;
        at += length;
    }
    return true;
}

void append_code_point(std::string& out, unsigned code) {
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | code >> 6);
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xE0 | code >> 12);
        out += static_cast<char>(0x80 | (code >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

std::string hexadecimal(std::string_view bytes) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text = bytes.empty() ? "" : "0x";
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += {kDigits[byte >> 4], kDigits[byte & 15]};
    }
    return text;
}

std::string dashed_date(std::string_view ymd) {
    return std::string(ymd.substr(0, 4)) + "-" + std::string(ymd.substr(4, 2)) + "-" +
           std::string(ymd.substr(6, 2));
}

Json date_time(const std::string& digits) {
    if (digits.size() != kDateTimeDigits || trim_both(digits).empty()) return nullptr;
    return dashed_date(digits) + " " + digits.substr(8, 2) + ":" + digits.substr(10, 2) + ":" +
           digits.substr(12, 2);
}

Json number(const Number& value) {
    if (!std::isfinite(value.amount)) return nullptr;
    if (value.decimals == 0 && std::abs(value.amount) < 1e15) {
        return static_cast<std::int64_t>(value.amount);
    }
    return value.amount;
}

std::string without_control_characters(std::string_view text) {
    std::string shown;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7F) {
            shown += c;
        } else {
            char escaped[5];
            std::snprintf(escaped, sizeof escaped, "\\x%02X", byte);
            shown += escaped;
        }
    }
    return shown;
}

}  // namespace

std::string dump(const Json& json, int indent) {
    return json.dump(indent, ' ', false, Json::error_handler_t::replace);
}

std::string to_utf8(std::string_view bytes) {
    if (is_utf8(bytes)) return std::string(bytes);
    std::string text;
    for (const char c : bytes) {
        const unsigned byte = static_cast<unsigned char>(c);
        append_code_point(text, byte >= 0x80 && byte <= 0x9F ? kCodePage1252[byte - 0x80] : byte);
    }
    return text;
}

Json to_json(const record::Field& field, const Value& value) {
    switch (value.kind()) {
        case ValueKind::kLogical:
            return value.logical();
        case ValueKind::kNumber:
            return number(value.number_form());
        case ValueKind::kDate:
            return value.date().empty() ? Json() : Json(dashed_date(value.date().to_ymd()));
        case ValueKind::kCharacter:
        case ValueKind::kMemo:
            if (field.type == 'T') return date_time(value.text());
            if (field.is_binary()) return hexadecimal(value.text());
            return to_utf8(trim_right(value.text()));
        default:
            return nullptr;
    }
}

std::string to_line(const record::Field& field, const Value& value) {
    if (value.kind() == ValueKind::kNumber) return trimmed_number(value.number_form());
    const Json json = to_json(field, value);
    if (json.is_null()) return {};
    if (json.is_boolean()) return json.get<bool>() ? "true" : "false";
    return without_control_characters(json.get<std::string>());
}

}  // namespace brenik::tools
