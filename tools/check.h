// The command "check": every fault of a table, or of all tables of a practice.

#pragma once

#include <string>
#include <vector>

#include "practice.h"

namespace brenik::tools {

struct CheckRequest {
    std::string path;  // a folder or a table
    bool json = false;
};

// Prints what is wrong, and at the end how much was looked at; answers the exit code.
ExitCode check(const CheckRequest& request);

// The tables that a path stands for: itself, or all those in the folder, by name. Throws ToolError
// when there is nothing of that name.
std::vector<std::string> tables_at(const std::string& path);
bool is_practice(const std::string& path);

}  // namespace brenik::tools
