// Converts between the host's bytes and the system's wide characters: texts, paths and variables.
//
// Hosts pass names in the ANSI code page of their process, as for all of Windows' narrow
// interfaces. This layer still calls the wide interfaces, because only they accept long paths. Our
// own programs choose UTF-8 instead, which can name every file.

#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace brenik::platform {

// From now on the process's texts are UTF-8. Only for a program's main(), before any other text: a
// library that is loaded into a host must never call it.
void use_utf8();

// Conversions between wide characters and the process's texts. wide_text() returns nothing if the
// bytes are not valid, or too many for one conversion.
std::optional<std::wstring> wide_text(std::string_view text);
std::string narrow_text(std::wstring_view text);

// The same for the text of a known code page.
std::optional<std::wstring> wide_text(std::string_view text, unsigned code_page);
std::string narrow_text(std::wstring_view text, unsigned code_page);

// A path in the process's code page, or in another one. If the page lacks a character, the short
// form, or nothing: with the nearest character it would be another path.
std::string narrow_path(const std::wstring& path);
std::string narrow_path(const std::wstring& path, unsigned code_page);

// The absolute path for a system call, in the unlimited form if it is long; nothing for a text that
// cannot be a path.
std::optional<std::wstring> full_path(const std::string& path);

// The current value; C libraries keep a copy from when they were loaded. Empty if unset.
std::wstring wide_environment_variable(const wchar_t* name);
std::string environment_variable(const wchar_t* name);

}  // namespace brenik::platform
