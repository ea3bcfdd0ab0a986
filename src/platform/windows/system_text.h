// Converts between the host's bytes and the system's wide characters: texts, paths and variables.
//
// Hosts pass names in the ANSI code page of their process, as for all of Windows' narrow
// interfaces. This layer still calls the wide interfaces, because only they accept long paths.

#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace brenik::platform {

constexpr unsigned kAnsiCodePage = 0;

// Empty if the bytes are not valid in the code page, or too many for one conversion.
std::optional<std::wstring> wide_text(std::string_view text, unsigned code_page = kAnsiCodePage);
std::string narrow_text(std::wstring_view text);

// The absolute path for a system call, in the unlimited form if it is long; nothing for a text that
// cannot be a path.
std::optional<std::wstring> full_path(const std::string& path);

// The current value; C libraries keep a copy from when they were loaded. Empty if unset.
std::wstring wide_environment_variable(const wchar_t* name);
std::string environment_variable(const wchar_t* name);

}  // namespace brenik::platform
