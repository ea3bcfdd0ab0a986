// Which process this is.
//
// Where processes can fork, the child begins with a copy of its parent's memory, but not of its
// files and locks (file.h). What must not be used in the child remembers the generation in which
// it was made.

#pragma once

namespace brenik::platform {

// One more in the child of a fork than in its parent. Costs no call of the system.
unsigned process_generation() noexcept;

}  // namespace brenik::platform
