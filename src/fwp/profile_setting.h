// Settings from initialisation files, with a word to whoever wonders why one has no effect.

#pragma once

#include <string>
#include <string_view>

#include "session/session.h"

namespace brenik {

// As platform::profile_string. A file that exists and cannot be read is noted as a fault of `call`,
// the operation or routine that wants the setting.
std::string profile_setting(Session& session, std::string_view call, const std::string& section,
                            const std::string& key, const std::string& fallback,
                            const std::string& path);

}  // namespace brenik
