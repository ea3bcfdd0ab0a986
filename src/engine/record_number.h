// Record numbers, and their conversion from the numbers that hosts pass.

#pragma once

#include <cstdint>
#include <limits>

namespace brenik {

using RecordNumber = std::uint32_t;  // 1-based; 0 stands for the blank phantom record

// Converts a host's number; 0 for a number that no record can have.
constexpr RecordNumber to_record_number(std::int64_t number) {
    const bool possible = number > 0 && number <= std::numeric_limits<RecordNumber>::max();
    return possible ? static_cast<RecordNumber>(number) : RecordNumber{0};
}

}  // namespace brenik
