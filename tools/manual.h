// What the tool tells about itself: the overview, the help of a command, manual pages and the
// completion for bash. All of it is made from the table of commands.

#pragma once

#include <string>
#include <vector>

#include "platform/console.h"

namespace brenik::tools {

struct Command;

struct ManualRequest {
    std::string folder;
};

// Both end with a line feed. The overview has the colours that suit `stream`; the help has those of
// standard output, and its width.
std::string overview(const std::vector<Command>& commands, platform::StandardStream stream);
std::string help_of(const Command& command);

// Writes brenik.1, a page brenik-NAME.1 for each command, and the completion for bash as "brenik".
// Creates the folder if it is missing. Throws ToolError.
void write_manual(const ManualRequest& request);

}  // namespace brenik::tools
