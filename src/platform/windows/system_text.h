// Between the host's bytes and the system's wide characters: texts, paths and variables.
//
// Hosts give names in the ANSI code page of their process, as all of Windows' narrow interfaces
// take them. The wide interfaces are used all the same, because only they accept long paths.

#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace brenik::platform {

constexpr unsigned kAnsiCodePage = 0;

// Nothing when the bytes are no text of the code page, or longer than Windows converts.
std::optional<std::wstring> wide_text(std::string_view text, unsigned code_page = kAnsiCodePage);
std::string narrow_text(std::wstring_view text);

// The full path that the system opens, in the form without limit where it is long; nothing for a
// text that no path can be.
std::optional<std::wstring> full_path(const std::string& path);

// As the process has it now; C libraries keep a copy from when they were loaded. Empty when unset.
std::wstring wide_environment_variable(const wchar_t* name);
std::string environment_variable(const wchar_t* name);

}  // namespace brenik::platform
