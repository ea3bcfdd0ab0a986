// Converts texts with the system's functions: one call for the length, one for the text.

#include "platform/windows/system_text.h"

#include <windows.h>

#include <limits>

namespace brenik::platform {

namespace {

unsigned process_code_page = CP_ACP;

// Longest path in the short form: folders have a lower limit than files, to leave room for an 8.3
// name.
constexpr std::size_t kLongestPlainPath = MAX_PATH - 13;

constexpr std::wstring_view kUncPrefix = L"\\\\";
constexpr std::wstring_view kUnlimited = L"\\\\?\\";
constexpr std::wstring_view kUnlimitedUnc = L"\\\\?\\UNC\\";
constexpr std::wstring_view kDevices = L"\\\\.\\";

// Upper bound on the length of any path that the system accepts.
constexpr std::size_t kLongestText = 32'767;

// The text that `get(buffer, room)` writes. `get` returns the length without the terminator; if the
// room is too small, the required room with it; 0 on failure.
template <class Get>
std::wstring text_from(Get get) {
    std::wstring text(MAX_PATH, L'\0');
    DWORD length = get(text.data(), static_cast<DWORD>(text.size()));
    while (length >= text.size()) {
        text.resize(length + std::size_t{1});
        length = get(text.data(), static_cast<DWORD>(text.size()));
    }
    text.resize(length);
    return text;
}

bool begins_with(std::wstring_view text, std::wstring_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

std::wstring in_unlimited_form(const std::wstring& path) {
    if (begins_with(path, kUnlimited) || begins_with(path, kDevices)) return path;
    if (begins_with(path, kUncPrefix)) {
        return std::wstring(kUnlimitedUnc) + path.substr(kUncPrefix.size());
    }
    return std::wstring(kUnlimited) + path;
}

}  // namespace

void use_utf8() { process_code_page = CP_UTF8; }

std::optional<std::wstring> wide_text(std::string_view text) {
    return wide_text(text, process_code_page);
}

std::optional<std::wstring> wide_text(std::string_view text, unsigned code_page) {
    if (text.empty()) return std::wstring();
    if (text.size() > std::numeric_limits<int>::max()) return std::nullopt;
    const int size = static_cast<int>(text.size());
    const int length =
        MultiByteToWideChar(code_page, MB_ERR_INVALID_CHARS, text.data(), size, nullptr, 0);
    if (length <= 0) return std::nullopt;
    std::wstring wide(static_cast<std::size_t>(length), L'\0');
    MultiByteToWideChar(code_page, MB_ERR_INVALID_CHARS, text.data(), size, wide.data(), length);
    return wide;
}

std::string narrow_text(std::wstring_view text) { return narrow_text(text, process_code_page); }

std::string narrow_text(std::wstring_view text, unsigned code_page) {
    if (text.empty() || text.size() > std::numeric_limits<int>::max()) return {};
    const int size = static_cast<int>(text.size());
    const int length =
        WideCharToMultiByte(code_page, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
    if (length <= 0) return {};
    std::string narrow(static_cast<std::size_t>(length), '\0');
    WideCharToMultiByte(code_page, 0, text.data(), size, narrow.data(), length, nullptr, nullptr);
    return narrow;
}

std::string narrow_path(const std::wstring& path) { return narrow_path(path, process_code_page); }

std::string narrow_path(const std::wstring& path, unsigned code_page) {
    const std::string narrow = narrow_text(path, code_page);
    if (wide_text(narrow, code_page) == path) return narrow;
    std::wstring brief(path.size() + 1, L'\0');
    const DWORD length =
        GetShortPathNameW(path.c_str(), brief.data(), static_cast<DWORD>(brief.size()));
    brief.resize(length < brief.size() ? length : 0);
    const std::string reachable = narrow_text(brief, code_page);
    return wide_text(reachable, code_page) == brief ? reachable : std::string();
}

std::optional<std::wstring> full_path(const std::string& path) {
    if (path.empty() || path.size() > kLongestText) return std::nullopt;
    if (path.find('\0') != std::string::npos) return std::nullopt;
    const std::optional<std::wstring> given = wide_text(path);
    if (!given) return std::nullopt;
    const std::wstring full = text_from([&](wchar_t* buffer, DWORD room) {
        return GetFullPathNameW(given->c_str(), room, buffer, nullptr);
    });
    if (full.empty()) return std::nullopt;
    return full.size() > kLongestPlainPath ? in_unlimited_form(full) : full;
}

std::wstring wide_environment_variable(const wchar_t* name) {
    return text_from(
        [&](wchar_t* buffer, DWORD room) { return GetEnvironmentVariableW(name, buffer, room); });
}

std::string environment_variable(const wchar_t* name) {
    return narrow_text(wide_environment_variable(name));
}

}  // namespace brenik::platform
