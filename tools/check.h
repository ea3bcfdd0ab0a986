// The command `check`: reports every fault of a table, or of all tables of a practice.

#pragma once

#include <string>

#include "practice.h"

namespace brenik::tools {

struct CheckRequest {
    TableArguments where;
    std::string encoding;  // instead of each table's own; empty for that
    bool json = false;
};

// Prints the findings and then a summary; returns the exit code.
ExitCode check(const CheckRequest& request);

}  // namespace brenik::tools
