// The command `doctor`: tests whether a folder on a file share is sound for the library.

#pragma once

#include <string>

#include "practice.h"

namespace brenik::tools {

struct DoctorRequest {
    std::string folder;
    bool with = false;  // together with another workstation
    int wait_s = 60;    // for the other workstation
    bool json = false;
};

// Tests on scratch files what the library relies on, and prints each trial; returns the exit code.
// The scratch files are removed at the end. Throws ToolError if it cannot write in the folder.
ExitCode doctor(const DoctorRequest& request);

}  // namespace brenik::tools
