// What outlives a session: the few values that start-up and shut-down do not begin anew.

#pragma once

#include <cstdint>
#include <string>

namespace brenik {

struct ModuleState {
    // Set by ShutDown, cleared by StartUp; refuses a second ShutDown in a row.
    bool shut_down = false;
    // Set once a system table marks the newer layout of the notes; never cleared.
    bool notes_variant = false;
    // The change journal is held as a whole, so its writers neither lock nor release it.
    bool journal_locked = false;
    // The record of the system table that holds counters and settings, as start-up found it; 0 for
    // whichever is current.
    std::uint32_t system_record = 0;
    // What tells the data folder of the latest start from others (platform::folder_identity).
    std::string data_folder;
};

}  // namespace brenik
