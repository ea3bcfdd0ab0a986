// Converts single characters between a code page and Unicode, with the system's own tables.

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace brenik::platform {

class TextConversion {
  public:
    // Null if the system cannot convert this code page, given by its number on Windows.
    static std::unique_ptr<TextConversion> open(std::uint16_t code_page);

    virtual ~TextConversion() = default;
    TextConversion(const TextConversion&) = delete;
    TextConversion& operator=(const TextConversion&) = delete;

    // The character that the bytes are; nothing if the system does not take them for exactly one.
    virtual std::optional<char32_t> character(std::string_view bytes) = 0;
    // The bytes of a character; empty, or those of a similar character, if the page lacks it.
    virtual std::string bytes_of(char32_t character) = 0;

  protected:
    TextConversion() = default;
};

// A text that the library wrote in a host, in UTF-8: there, Windows' texts are in the ANSI code
// page.
std::string utf8_of_host(const std::string& text);

}  // namespace brenik::platform
