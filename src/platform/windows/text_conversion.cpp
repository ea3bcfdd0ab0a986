// Code pages by Windows' own conversions.

#include "platform/text_conversion.h"

#include <windows.h>

#include <array>

#include "platform/windows/system_text.h"

namespace brenik::platform {

namespace {

class WindowsConversion : public TextConversion {
  public:
    explicit WindowsConversion(unsigned code_page) : code_page_(code_page) {}

    std::optional<char32_t> character(std::string_view bytes) override {
        const std::optional<std::wstring> wide = wide_text(bytes, code_page_);
        if (!wide || wide->empty() || wide->size() > 2) return std::nullopt;
        const char32_t first = wide->front();
        if (wide->size() == 1) {
            return IS_HIGH_SURROGATE(first) || IS_LOW_SURROGATE(first) ? std::nullopt
                                                                       : std::optional(first);
        }
        const char32_t second = wide->back();
        if (!IS_SURROGATE_PAIR(first, second)) return std::nullopt;
        return 0x10000 + ((first - HIGH_SURROGATE_START) << 10) + (second - LOW_SURROGATE_START);
    }

    std::string bytes_of(char32_t character) override {
        std::wstring wide(1, static_cast<wchar_t>(character));
        if (character >= 0x10000) {
            const char32_t above = character - 0x10000;
            wide = {static_cast<wchar_t>(HIGH_SURROGATE_START + (above >> 10)),
                    static_cast<wchar_t>(LOW_SURROGATE_START + (above & 0x3FF))};
        }
        std::array<char, 8> bytes{};
        const int length =
            WideCharToMultiByte(code_page_, 0, wide.data(), static_cast<int>(wide.size()),
                                bytes.data(), static_cast<int>(bytes.size()), nullptr, nullptr);
        return {bytes.data(), static_cast<std::size_t>(length > 0 ? length : 0)};
    }

  private:
    unsigned code_page_;
};

}  // namespace

std::unique_ptr<TextConversion> TextConversion::open(std::uint16_t code_page) {
    if (IsValidCodePage(code_page) == 0) return nullptr;
    return std::make_unique<WindowsConversion>(code_page);
}

// Sessions of our own programs have written UTF-8.
std::string utf8_of_host(const std::string& text) {
    if (wide_text(text, CP_UTF8)) return text;
    const std::optional<std::wstring> wide = wide_text(text, CP_ACP);
    return wide ? narrow_text(*wide) : text;
}

}  // namespace brenik::platform
