// Initialisation files, read like Windows private profiles.
//
// A file has sections in square brackets and "key=value" lines. Section and key names match in any
// case; the first match wins. Blanks around key and value are dropped, and so is one pair of single
// or double quotes around the value. A line that begins with ";" is a comment. A missing file,
// section or key gives the default.
//
// A file that begins with a mark of UTF-8 or UTF-16 is converted to the process's code page: the
// ANSI code page on Windows, UTF-8 on other systems whatever locale the host has set. A character
// that the code page lacks becomes '?', or the nearest character that Windows knows. Without a mark
// the bytes stay as they are.

#pragma once

#include <string>

namespace brenik::platform {

// If the file exists but cannot be read, returns the default and sets `unreadable` to the file's
// name and the reason.
std::string profile_string(const std::string& section, const std::string& key,
                           const std::string& fallback, const std::string& path,
                           std::string* unreadable = nullptr);

}  // namespace brenik::platform
