// Reads a setting; notes a file that cannot be read.

#include "fwp/profile_setting.h"

#include "fwp/fault_file.h"
#include "platform/profile.h"

namespace brenik {

std::string profile_setting(Session& session, std::string_view call, const std::string& section,
                            const std::string& key, const std::string& fallback,
                            const std::string& path) {
    std::string unreadable;
    std::string value = platform::profile_string(section, key, fallback, path, &unreadable);
    if (!unreadable.empty()) note_fault(session, call, unreadable);
    return value;
}

}  // namespace brenik
