// The system has no reader of profiles, and hosts use one encoding, UTF-8.

#include "platform/profile_reader.h"

namespace brenik::platform {

std::optional<std::string> system_profile_string(const std::string&, const std::string&,
                                                 const std::string&, const std::string&) {
    return std::nullopt;
}

std::string in_code_page(const std::string& utf8) { return utf8; }

}  // namespace brenik::platform
