// Code pages by the C library's iconv, whose names for them are those of Windows with few
// exceptions.

#include "platform/text_conversion.h"

#include <iconv.h>

#include <array>

namespace brenik::platform {

namespace {

// Native byte order, and no mark of it.
constexpr const char* kUnicode = "WCHAR_T";
static_assert(sizeof(wchar_t) == sizeof(char32_t));

std::string name_of(std::uint16_t code_page) {
    switch (code_page) {
        case 10000:
            return "MACINTOSH";
        case 10006:
            return "MACGREEK";
        case 10007:
            return "MAC-CYRILLIC";
        case 10029:
            return "MAC-CENTRALEUROPE";
        case 65001:
            return "UTF-8";
        default:
            return "CP" + std::to_string(code_page);
    }
}

// One direction of a conversion.
class Direction {
  public:
    Direction(const char* to, const char* from) : descriptor_(iconv_open(to, from)) {}
    ~Direction() {
        if (is_open()) iconv_close(descriptor_);
    }
    Direction(const Direction&) = delete;
    Direction& operator=(const Direction&) = delete;

    bool is_open() const {
        // The system's own value for a failure.
        // NOLINTNEXTLINE(performance-no-int-to-ptr)
        return descriptor_ != reinterpret_cast<iconv_t>(-1);
    }

    // Converts the whole text from the initial state; nothing if a part of it cannot be converted.
    std::optional<std::string> convert(std::string_view text) {
        std::array<char, 16> room{};
        std::string given(text);
        char* from = given.data();
        char* to = room.data();
        std::size_t left = given.size();
        std::size_t free = room.size();
        constexpr auto kFailed = static_cast<std::size_t>(-1);
        iconv(descriptor_, nullptr, nullptr, nullptr, nullptr);
        // Some pages keep a letter back until they see that no accent follows it.
        if (iconv(descriptor_, &from, &left, &to, &free) == kFailed ||
            iconv(descriptor_, nullptr, nullptr, &to, &free) == kFailed) {
            return std::nullopt;
        }
        return std::string(room.data(), room.size() - free);
    }

  private:
    iconv_t descriptor_;
};

class IconvConversion : public TextConversion {
  public:
    explicit IconvConversion(const std::string& name)
        : decode_(kUnicode, name.c_str()), encode_(name.c_str(), kUnicode) {}

    bool is_open() const { return decode_.is_open() && encode_.is_open(); }

    std::optional<char32_t> character(std::string_view bytes) override {
        const std::optional<std::string> found = decode_.convert(bytes);
        char32_t character = 0;
        if (!found || found->size() != sizeof character) return std::nullopt;
        found->copy(reinterpret_cast<char*>(&character), sizeof character);
        return character;
    }

    std::string bytes_of(char32_t character) override {
        const auto* bytes = reinterpret_cast<const char*>(&character);
        return encode_.convert({bytes, sizeof character}).value_or("");
    }

  private:
    Direction decode_;
    Direction encode_;
};

}  // namespace

std::unique_ptr<TextConversion> TextConversion::open(std::uint16_t code_page) {
    auto conversion = std::make_unique<IconvConversion>(name_of(code_page));
    if (!conversion->is_open()) return nullptr;
    return conversion;
}

std::string utf8_of_host(const std::string& text) { return text; }

}  // namespace brenik::platform
