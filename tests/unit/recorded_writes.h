// What the process writes to files, write for write, while a test asks for it.

#pragma once

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace brenik {

// Offset and bytes of every write in its order; empty while nothing is recorded. Its source takes
// the place of the system's function for the whole program.
extern std::optional<std::vector<std::pair<std::uint64_t, std::vector<std::uint8_t>>>>
    recorded_writes;

}  // namespace brenik
