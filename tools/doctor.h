// The command "doctor": whether a folder on a file share is sound for the library.

#pragma once

#include <string>

#include "practice.h"

namespace brenik::tools {

struct DoctorRequest {
    std::string folder;
    bool with = false;  // together with another workstation
    int wait_s = 60;    // for the other to come
    bool json = false;
};

// Tries on scratch files, which are removed at the end, what the library relies on, and prints each
// trial; answers the exit code. Throws ToolError when nothing can be written in the folder.
ExitCode doctor(const DoctorRequest& request);

}  // namespace brenik::tools
