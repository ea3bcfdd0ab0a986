// The record that a number from a host, a saved state or a line of `brenik call` means.

#pragma once

#include <cstdint>
#include <limits>

#include "engine/engine.h"

namespace brenik {

// The phantom record for a number that no record can have.
constexpr RecordNumber to_record_number(std::int64_t number) {
    const bool possible = number > 0 && number <= std::numeric_limits<RecordNumber>::max();
    return possible ? static_cast<RecordNumber>(number) : RecordNumber{0};
}

}  // namespace brenik
