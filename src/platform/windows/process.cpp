// Windows has no fork.

#include "platform/process.h"

namespace brenik::platform {

unsigned process_generation() noexcept { return 0; }

}  // namespace brenik::platform
