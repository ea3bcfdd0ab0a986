// Text files that begin with a mark of their encoding, as editors on Windows write them.

#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace brenik::platform {

enum class TextForm { kBytes, kUtf8, kUtf16LittleEndian, kUtf16BigEndian };

// kBytes where a file's first bytes are no mark.
TextForm marked_form(std::string_view first_bytes);
std::size_t mark_size(TextForm form);
// In bytes.
constexpr std::size_t unit_size(TextForm form) {
    return form == TextForm::kBytes || form == TextForm::kUtf8 ? 1 : 2;
}

// Where the first line of a text ends: the place of its LF, or the text's size without one.
std::size_t line_end(std::string_view text, TextForm form);

// A text of a marked form as valid UTF-8. A byte or unit that is no part of a character (an
// overlong form, half of a pair, a last odd byte) becomes '?'.
std::string utf8_of(std::string_view text, TextForm form);

}  // namespace brenik::platform
