// Processes do not fork here.

#include "platform/process.h"

namespace brenik::platform {

unsigned process_generation() noexcept { return 0; }

}  // namespace brenik::platform
