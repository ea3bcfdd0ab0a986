// The command `sample`: makes an invented practice, the same in every run.

#pragma once

#include <cstdint>
#include <string>

namespace brenik::tools {

struct SampleRequest {
    std::string folder;  // created if missing; must not hold a practice yet
    std::uint32_t contacts = 200;
    std::uint32_t matters = 120;
    std::uint32_t events = 300;
    std::uint32_t notes = 150;
    bool v14 = false;   // with the newer notes table
    bool wide = false;  // with contacts of 45 fields instead of 26
    bool json = false;
};

// Makes the tables, indexes and settings files and prints a summary. Throws ToolError.
void make_sample(const SampleRequest& request);

}  // namespace brenik::tools
