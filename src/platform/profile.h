// Initialisation files, read with the semantics of Windows private profiles.
//
// Sections in square brackets, "key=value" lines. Section and key names are matched without regard
// to case, the first match wins; blanks around key and value are dropped, and one pair of single or
// double quotes around the value; a line that begins with ";" is a comment. A missing file, section
// or key gives the default.
//
// A file that begins with a mark of UTF-8 or UTF-16 is text: names and values arrive in the
// process's code page. That is the ANSI code page on Windows, and UTF-8 on other systems, whatever
// the host has made of its locale. A character that the code page lacks becomes '?', or its nearest
// relative where Windows knows one. Without a mark the bytes stay as they are.

#pragma once

#include <string>

namespace brenik::platform {

// Where a file exists and cannot be read, `unreadable` receives its name and the reason, and the
// answer is the default.
std::string profile_string(const std::string& section, const std::string& key,
                           const std::string& fallback, const std::string& path,
                           std::string* unreadable = nullptr);

}  // namespace brenik::platform
