// Runs what the command line asks for.

#pragma once

#include <string>
#include <vector>

#include "practice.h"

namespace brenik::tools {

// `words` are the arguments without the name of the program. Throws ToolError if they are wrong,
// and whatever the command throws.
ExitCode run_command_line(const std::vector<std::string>& words);

}  // namespace brenik::tools
