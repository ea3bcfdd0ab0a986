// Decodes text that may be malformed anywhere, also at its end.

#include "platform/marked_text.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace brenik::platform {

namespace {

struct Mark {
    TextForm form;
    std::string_view bytes;
};

constexpr std::array kMarks{
    Mark{TextForm::kUtf8, "\xEF\xBB\xBF"},
    Mark{TextForm::kUtf16LittleEndian, "\xFF\xFE"},
    Mark{TextForm::kUtf16BigEndian, "\xFE\xFF"},
};

constexpr char32_t kFirstSurrogate = 0xD800;
constexpr char32_t kFirstLowSurrogate = 0xDC00;
constexpr char32_t kLastSurrogate = 0xDFFF;
constexpr char32_t kLastCharacter = 0x10FFFF;

std::uint8_t byte_at(std::string_view text, std::size_t place) {
    return static_cast<std::uint8_t>(text[place]);
}

// Length in bytes of the character at the front of a text; 0 if it is not UTF-8.
std::size_t utf8_length(std::string_view text) {
    constexpr std::array<char32_t, 5> kLeast = {0, 0, 0x80, 0x800, 0x10000};
    const std::uint8_t first = byte_at(text, 0);
    if (first < 0x80) return 1;
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC0 || first >= 0xF8 || length > text.size()) return 0;
    char32_t character = first & (0x7Fu >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte_at(text, i) & 0xC0) != 0x80) return 0;
        character = character << 6 | (byte_at(text, i) & 0x3Fu);
    }
    const bool surrogate = character >= kFirstSurrogate && character <= kLastSurrogate;
    return character < kLeast[length] || character > kLastCharacter || surrogate ? 0 : length;
}

std::string checked_utf8(std::string_view text) {
    std::string checked;
    while (!text.empty()) {
        const std::size_t length = utf8_length(text);
        checked += length == 0 ? "?" : text.substr(0, length);
        text.remove_prefix(std::max(length, std::size_t{1}));
    }
    return checked;
}

// The unit at an even position; both of its bytes must exist.
char32_t unit_at(std::string_view text, std::size_t place, TextForm form) {
    const char32_t first = byte_at(text, place);
    const char32_t second = byte_at(text, place + 1);
    return form == TextForm::kUtf16LittleEndian ? second << 8 | first : first << 8 | second;
}

bool is_low_surrogate(char32_t unit) {
    return unit >= kFirstLowSurrogate && unit <= kLastSurrogate;
}

std::string from_utf16(std::string_view text, TextForm form) {
    std::string made;
    std::size_t place = 0;
    while (place + 1 < text.size()) {
        const char32_t unit = unit_at(text, place, form);
        place += 2;
        if (unit < kFirstSurrogate || unit > kLastSurrogate) {
            append_utf8(made, unit);
            continue;
        }
        const char32_t next = place + 1 < text.size() ? unit_at(text, place, form) : 0;
        if (is_low_surrogate(unit) || !is_low_surrogate(next)) {
            made += '?';
            continue;
        }
        append_utf8(made, 0x10000 + ((unit - kFirstSurrogate) << 10) + (next - kFirstLowSurrogate));
        place += 2;
    }
    if (place < text.size()) made += '?';
    return made;
}

}  // namespace

void append_utf8(std::string& text, char32_t character) {
    const auto add = [&](char32_t byte) { text += static_cast<char>(byte); };
    const auto add_tail = [&](int shift) { add(0x80 | (character >> shift & 0x3F)); };
    if (character < 0x80) return add(character);
    if (character < 0x800) {
        add(0xC0 | character >> 6);
    } else if (character < 0x10000) {
        add(0xE0 | character >> 12);
        add_tail(6);
    } else {
        add(0xF0 | character >> 18);
        add_tail(12);
        add_tail(6);
    }
    add_tail(0);
}

TextForm marked_form(std::string_view first_bytes) {
    const auto found = std::find_if(kMarks.begin(), kMarks.end(), [&](const Mark& mark) {
        return first_bytes.substr(0, mark.bytes.size()) == mark.bytes;
    });
    return found == kMarks.end() ? TextForm::kBytes : found->form;
}

std::size_t mark_size(TextForm form) {
    const auto found = std::find_if(kMarks.begin(), kMarks.end(),
                                    [&](const Mark& mark) { return mark.form == form; });
    return found == kMarks.end() ? 0 : found->bytes.size();
}

std::size_t line_end(std::string_view text, TextForm form) {
    if (unit_size(form) == 1) return std::min(text.find('\n'), text.size());
    for (std::size_t place = 0; place + 1 < text.size(); place += 2) {
        if (unit_at(text, place, form) == '\n') return place;
    }
    return text.size();
}

std::string utf8_of(std::string_view text, TextForm form) {
    return form == TextForm::kUtf8 ? checked_utf8(text) : from_utf16(text, form);
}

}  // namespace brenik::platform
