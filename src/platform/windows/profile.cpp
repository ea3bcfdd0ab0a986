// Windows' own reader of private profiles.
//
// Always gets a full path: it would search the Windows folder for a bare name. Paths longer than
// its limit go to our own reader.

#include "platform/profile_reader.h"

#include <windows.h>

#include "platform/windows/system_text.h"

namespace brenik::platform {

namespace {

// A default that no line of a text file can hold, so that an absent key is distinct from any value.
constexpr const wchar_t* kAbsent = L"\n";

constexpr std::size_t kFirstRoom = 256;
constexpr std::size_t kMostRoom = 64 * 1024 * 1024;

}  // namespace

std::optional<std::string> system_profile_string(const std::string& section, const std::string& key,
                                                 const std::string& fallback,
                                                 const std::string& path) {
    const auto file = full_path(path);
    const auto wide_section = wide_text(section);
    const auto wide_key = wide_text(key);
    if (!file || !wide_section || !wide_key) return fallback;
    if (file->size() >= MAX_PATH) return std::nullopt;

    std::wstring value(kFirstRoom, L'\0');
    DWORD length = 0;
    for (;; value.resize(value.size() * 2)) {
        const auto room = static_cast<DWORD>(value.size());
        length = GetPrivateProfileStringW(wide_section->c_str(), wide_key->c_str(), kAbsent,
                                          value.data(), room, file->c_str());
        if (length + 1 < room || value.size() >= kMostRoom) break;  // else it may be truncated
    }
    value.resize(length);
    return value == kAbsent ? fallback : narrow_text(value);
}

std::string in_code_page(const std::string& utf8) {
    return narrow_text(wide_text(utf8, CP_UTF8).value_or(std::wstring()));
}

}  // namespace brenik::platform
