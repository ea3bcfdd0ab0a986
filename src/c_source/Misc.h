// The library's busy wait.

#pragma once

#include "platform/clock.h"

namespace brenik {

inline constexpr double kDefaultSleepSeconds = 0.01;

// Keeps the calling thread busy until `seconds` have passed on the clock. A wait ends early at
// midnight; in the first two seconds of a day it ends at once.
void SLEEP(platform::Clock& clock, double seconds = kDefaultSleepSeconds);

}  // namespace brenik
