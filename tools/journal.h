// "journal": the change journal in words.

#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace brenik::tools {

struct JournalRequest {
    std::string folder;
    std::optional<std::uint32_t> limit;  // only the last so many entries
    bool json = false;
};

// Writes to standard output; throws ToolError.
void print_journal(const JournalRequest& request);

}  // namespace brenik::tools
