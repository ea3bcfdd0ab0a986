// The command `check`: reports every fault of a table, or of all tables of a practice.

#pragma once

#include <string>
#include <vector>

#include "practice.h"

namespace brenik::tools {

struct CheckRequest {
    std::string path;  // a folder or a table
    bool json = false;
};

// Prints the findings and then a summary; returns the exit code.
ExitCode check(const CheckRequest& request);

// The tables of a path: the table itself, or all tables in the folder, sorted by name. Throws
// ToolError if there is nothing of that name.
std::vector<std::string> tables_at(const std::string& path);
bool is_practice(const std::string& path);

}  // namespace brenik::tools
