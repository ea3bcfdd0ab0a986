// Who holds a lock: for people who look for the program that stands in their way.

#pragma once

#include <cstdint>
#include <string>

#include "platform/file.h"

namespace brenik::platform {

// The programs of this computer whose locks on those bytes of the file exclude a lock of the wanted
// kind, in words: name, process and user of each, the first few of many. Empty when the system does
// not tell: it keeps other users' processes to themselves, and knows nothing of other computers.
// Takes some milliseconds, where there are very many processes up to a bound of less than a second.
std::string lock_holders(const std::string& path, ByteRange range, LockKind wanted);

}  // namespace brenik::platform
