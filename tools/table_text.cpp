// Converts character by character, so that every system treats the same bytes as one character.

#include "table_text.h"

#include <algorithm>
#include <cctype>
#include <iostream>
#include <set>

#include "engine/record/code_page.h"
#include "platform/marked_text.h"
#include "practice.h"

namespace brenik::tools {
namespace {

constexpr char32_t kFirstShown = 0xA0;  // beyond ASCII and the control characters after it
constexpr char32_t kReplacement = 0xFFFD;

void say_once(const std::string& message) {
    static std::set<std::string> said;
    if (said.insert(message).second) std::cerr << "brenik: " << message << "\n";
}

std::string hexadecimal(unsigned char byte) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    return {kDigits[byte >> 4], kDigits[byte & 15]};
}

std::string escaped(char byte) { return "\\x" + hexadecimal(static_cast<unsigned char>(byte)); }

// True if the text begins like one of our escapes.
bool begins_escape(std::string_view text) {
    const auto is_digit = [&](std::size_t at) {
        return std::isxdigit(static_cast<unsigned char>(text[at])) != 0;
    };
    return text.size() >= 4 && text.starts_with("\\x") && is_digit(2) && is_digit(3);
}

bool is_private(char32_t code) { return (code >= 0xE000 && code <= 0xF8FF) || code >= 0xF0000; }

bool is_shown(char32_t code) {
    return code >= kFirstShown && code != kReplacement && !is_private(code);
}

const TableText& utf8_text() {
    static const TableText text(0, record::kUtf8);
    return text;
}

bool is_ascii(char c) { return static_cast<unsigned char>(c) < 0x80; }

std::uint16_t page_for(std::uint8_t mark, EncodingChoice choice) {
    if (choice) return *choice;
    const auto page = record::code_page_of_mark(mark);
    if (!page && mark != 0) {
        say_once("no code page is known by the mark 0x" + hexadecimal(mark) +
                 "; text is shown in code page " + std::to_string(record::kUsualCodePage) +
                 " unless --encoding names another");
    }
    return page.value_or(record::kUsualCodePage);
}

}  // namespace

EncodingChoice encoding_named(const std::string& name) {
    if (name.empty()) return std::nullopt;
    if (const auto page = record::code_page_named(name)) return page;
    throw ToolError(ExitCode::kUsage,
                    "--encoding: no code page " + name +
                        "; give a number (437), a name (windows-1252, utf-8) or a mark (0x01)");
}

TableText::TableText(std::uint8_t mark, EncodingChoice choice)
    : code_page_(page_for(mark, choice)),
      longest_(record::longest_character(code_page_)),
      conversion_(platform::TextConversion::open(code_page_)) {
    if (!conversion_) {
        say_once("this system cannot convert code page " + std::to_string(code_page_) +
                 "; bytes from 0x80 on are shown as \\xNN");
        return;
    }
    for (unsigned byte = 0x80; byte < single_.size(); ++byte) {
        const char bytes[] = {static_cast<char>(byte)};
        const char32_t code = conversion_->character({bytes, 1}).value_or(0);
        const bool disputed = record::is_disputed(code_page_, static_cast<std::uint8_t>(byte));
        if (is_shown(code) && !disputed) single_[byte] = code;
    }
}

std::optional<TableText::Character> TableText::first_character(std::string_view bytes) const {
    const auto first = static_cast<unsigned char>(bytes[0]);
    if (first < 0x80) return Character{1, first};
    if (single_[first] != 0) return Character{1, single_[first]};
    if (!conversion_) return std::nullopt;
    for (std::size_t length = 2; length <= std::min(longest_, bytes.size()); ++length) {
        const char32_t code = longer_character(bytes.substr(0, length));
        if (code != 0) return Character{length, code};
    }
    return std::nullopt;
}

char32_t TableText::longer_character(std::string_view bytes) const {
    const auto ask = [&] {
        const char32_t code = conversion_->character(bytes).value_or(0);
        return is_shown(code) ? code : 0;
    };
    if (bytes.size() != 2) return ask();
    // The system needs a thousand instructions for each answer, so answers are kept: a text has
    // few different pairs.
    const auto pair = static_cast<std::uint16_t>(static_cast<unsigned char>(bytes[0]) << 8 |
                                                 static_cast<unsigned char>(bytes[1]));
    const auto [known, is_new] = pairs_.try_emplace(pair);
    if (is_new) known->second = ask();
    return known->second;
}

std::string TableText::convert(std::string_view bytes, bool escapes_backslashes) const {
    std::string text;
    while (!bytes.empty()) {
        const auto* const plain_end =
            std::ranges::find_if(bytes, [](char c) { return !is_ascii(c) || c == '\\'; });
        const auto plain = static_cast<std::size_t>(plain_end - bytes.begin());
        text += bytes.substr(0, plain);
        bytes.remove_prefix(plain);
        if (bytes.empty()) break;
        const auto character = first_character(bytes);
        if (!character || (escapes_backslashes && begins_escape(bytes))) {
            text += escaped(bytes[0]);
        } else if (character->code < 0x80) {
            text += bytes[0];
        } else {
            platform::append_utf8(text, character->code);
        }
        bytes.remove_prefix(character ? character->bytes : 1);
    }
    return text;
}

std::optional<std::string> TableText::bytes_of(std::string_view utf8) const {
    std::string bytes;
    while (!utf8.empty()) {
        const auto wanted = utf8_text().first_character(utf8);
        if (!wanted) return std::nullopt;
        std::string found(utf8.substr(0, 1));
        if (wanted->code >= 0x80) found = conversion_ ? conversion_->bytes_of(wanted->code) : "";
        const auto back = found.empty() ? std::nullopt : first_character(found);
        if (!back || back->code != wanted->code) return std::nullopt;
        bytes += found;
        utf8.remove_prefix(wanted->bytes);
    }
    return bytes;
}

std::string to_utf8(std::string_view text) { return utf8_text().convert(text, false); }

std::string one_line(std::string_view utf8) {
    const auto is_control = [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte == 0x7F;
    };
    std::string line;
    while (true) {
        const auto* const found = std::ranges::find_if(utf8, is_control);
        const auto plain = static_cast<std::size_t>(found - utf8.begin());
        line += utf8.substr(0, plain);
        if (plain == utf8.size()) return line;
        line += escaped(utf8[plain]);
        utf8.remove_prefix(plain + 1);
    }
}

}  // namespace brenik::tools
