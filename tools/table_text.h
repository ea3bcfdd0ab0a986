// The text of tables in UTF-8.
//
// Every byte of a table can be told from what is shown, unless its code page has two codes for a
// character. A byte that the code page leaves undefined is shown as \xNN, and so is a backslash
// that could be mistaken for the beginning of that. Results that only stand in for a missing
// character (control characters for bytes from 0x80 on, private ones, the replacement character)
// count as undefined, because not every system gives them.

#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "platform/text_conversion.h"

namespace brenik::tools {

// The code page that a user names instead of the one that each table's mark names.
using EncodingChoice = std::optional<std::uint16_t>;

// The code page of this name, or no choice if the name is empty. Throws ToolError if there is no
// such code page.
EncodingChoice encoding_named(const std::string& name);

class TableText {
  public:
    // For a table with this code page mark. Says once on standard error if the system cannot
    // convert the page, or if nobody knows the mark.
    explicit TableText(std::uint8_t mark, EncodingChoice choice = {});

    std::uint16_t code_page() const { return code_page_; }
    // As UTF-8. Control characters are kept.
    std::string shown(std::string_view bytes) const { return convert(bytes, true); }
    // The bytes of a text in UTF-8; nothing if the page lacks one of its characters.
    std::optional<std::string> bytes_of(std::string_view utf8) const;

  private:
    friend std::string to_utf8(std::string_view text);
    struct Character {
        std::size_t bytes;
        char32_t code;
    };
    std::optional<Character> first_character(std::string_view bytes) const;
    // 0 if the bytes, two or more, are no character that is shown.
    char32_t longer_character(std::string_view bytes) const;
    std::string convert(std::string_view bytes, bool escapes_backslashes) const;

    std::uint16_t code_page_;
    std::size_t longest_;
    std::unique_ptr<platform::TextConversion> conversion_;
    std::array<char32_t, 256> single_{};  // characters of one byte; 0 where there is none
    mutable std::unordered_map<std::uint16_t, char32_t> pairs_;  // those of two bytes met so far
};

// As UTF-8 what should be UTF-8 already: paths, the system's messages, and our own. Other bytes
// become \xNN. Backslashes stay: paths are full of them.
std::string to_utf8(std::string_view text);
// Control characters as \xNN, so that a text takes one line and commands no terminal.
std::string one_line(std::string_view utf8);
// Both: for names of files, and for messages with such names.
inline std::string to_line(std::string_view text) { return one_line(to_utf8(text)); }

}  // namespace brenik::tools
