// Names the holders of a lock, for a user who needs to find the program that blocks another.

#pragma once

#include <cstdint>
#include <string>

#include "platform/file.h"

namespace brenik::platform {

// Describes the programs on this computer whose locks on `range` exclude a lock of kind `wanted`:
// name, process and user of each, at most three. Empty if the system does not tell: it hides other
// users' processes and does not know other computers. Takes some milliseconds; with very many
// processes, up to about half a second.
std::string lock_holders(const std::string& path, ByteRange range, LockKind wanted);

}  // namespace brenik::platform
