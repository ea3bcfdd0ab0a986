// State that outlives a session: the values that start-up and shut-down do not reset.

#pragma once

#include <cstdint>
#include <string>

namespace brenik {

struct ModuleState {
    // Set by ShutDown, cleared by StartUp; refuses a second ShutDown in a row.
    bool shut_down = false;
    // Set once a system table marks the newer layout of the notes; never cleared.
    bool notes_variant = false;
    // True while RSLOCK holds the whole journal, so its writers neither lock nor release it.
    bool journal_locked = false;
    // The system table's record with counters and settings, as start-up found it; 0 for the current
    // record.
    std::uint32_t system_record = 0;
    // Identity of the latest start's data folder (platform::folder_identity).
    std::string data_folder;
};

}  // namespace brenik
