// The command `journal`: prints the change journal.

#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace brenik::tools {

struct JournalRequest {
    std::string folder;
    std::optional<std::uint32_t> limit;  // only the last N entries
    std::string encoding;                // instead of each table's own; empty for that
    bool json = false;
};

// Writes to standard output; throws ToolError.
void print_journal(const JournalRequest& request);

}  // namespace brenik::tools
