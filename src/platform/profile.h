// Initialisation files, read with the semantics of Windows private profiles.
//
// Sections in square brackets, "key=value" lines. Section and key names are matched without regard
// to case, the first match wins; blanks around key and value are dropped, and one pair of single or
// double quotes around the value; a line that begins with ";" is a comment. A missing file, section
// or key gives the default.

#pragma once

#include <string>

namespace brenik::platform {

std::string profile_string(const std::string& section, const std::string& key,
                           const std::string& fallback, const std::string& path);

}  // namespace brenik::platform
