// Our own reader of initialisation files, for systems that have none, and for files that the system's
// own cannot reach.

#pragma once

#include <string>

namespace brenik::platform {

// As profile_string (profile.h).
std::string read_profile(const std::string& section, const std::string& key,
                         const std::string& fallback, const std::string& path);

}  // namespace brenik::platform
