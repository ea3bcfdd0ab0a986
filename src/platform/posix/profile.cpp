// There is no reader of profiles but our own.

#include "platform/profile.h"

#include "platform/profile_reader.h"

namespace brenik::platform {

std::string profile_string(const std::string& section, const std::string& key,
                           const std::string& fallback, const std::string& path) {
    return read_profile(section, key, fallback, path);
}

}  // namespace brenik::platform
