// The command `journal`: prints the change journal.

#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "table_text.h"

namespace brenik::tools {

struct JournalRequest {
    std::string folder;
    std::optional<std::uint32_t> limit;  // only the last N entries
    EncodingChoice encoding;
    bool json = false;
};

// Writes to standard output; throws ToolError.
void print_journal(const JournalRequest& request);

}  // namespace brenik::tools
