// How records are numbered.

#pragma once

#include <cstdint>
#include <limits>

namespace brenik {

using RecordNumber = std::uint32_t;  // 1-based; 0 stands for the blank phantom record

// A host's number as a record's: 0 for one that no record can have.
constexpr RecordNumber to_record_number(std::int64_t number) {
    const bool possible = number > 0 && number <= std::numeric_limits<RecordNumber>::max();
    return possible ? static_cast<RecordNumber>(number) : RecordNumber{0};
}

}  // namespace brenik
