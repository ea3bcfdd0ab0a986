// Settings from initialisation files, with a note in the fault file if a file cannot be read.

#pragma once

#include <string>
#include <string_view>

#include "session/session.h"

namespace brenik {

// Like platform::profile_string. A file that exists but cannot be read is noted as a fault of
// `call`, the operation or routine that needs the setting.
std::string profile_setting(Session& session, std::string_view call, const std::string& section,
                            const std::string& key, const std::string& fallback,
                            const std::string& path);

}  // namespace brenik
