// What the reader of initialisation files needs from the system.

#pragma once

#include <optional>
#include <string>

namespace brenik::platform {

// The value, or `fallback`, from the system's own reader of profiles. Empty if there is no such
// reader or it cannot reach the file.
std::optional<std::string> system_profile_string(const std::string& section, const std::string& key,
                                                 const std::string& fallback,
                                                 const std::string& path);

// Converts a text to the process's code page (profile.h).
std::string in_code_page(const std::string& utf8);

}  // namespace brenik::platform
