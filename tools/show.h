// The command `show`: describes a table or prints some of its records.

#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "practice.h"

namespace brenik::tools {

struct ShowRequest {
    TableArguments where;
    std::optional<std::uint32_t> record;
    std::string order;
    std::optional<std::string> seek;  // in `order`
    bool all = false;                 // every record, in `order` if one is named
    bool raw = false;                 // values as bytes
    std::string encoding;             // instead of each table's own; empty for that
    bool json = false;
};

// Writes to standard output; throws ToolError.
void show(const ShowRequest& request);

}  // namespace brenik::tools
