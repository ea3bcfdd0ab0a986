// Text files that begin with a mark of their encoding, as written by editors on Windows.

#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace brenik::platform {

enum class TextForm { kBytes, kUtf8, kUtf16LittleEndian, kUtf16BigEndian };

// kBytes if the file's first bytes are no mark.
TextForm marked_form(std::string_view first_bytes);
std::size_t mark_size(TextForm form);
// Bytes per code unit.
constexpr std::size_t unit_size(TextForm form) {
    return form == TextForm::kBytes || form == TextForm::kUtf8 ? 1 : 2;
}

// The position of the first LF, or the text's size if there is none.
std::size_t line_end(std::string_view text, TextForm form);

// Converts a text of a marked form to valid UTF-8. A byte or unit that is no part of a character
// (an overlong form, an unpaired surrogate, an odd last byte) becomes '?'.
std::string utf8_of(std::string_view text, TextForm form);

// Appends a character in UTF-8.
void append_utf8(std::string& text, char32_t character);

}  // namespace brenik::platform
