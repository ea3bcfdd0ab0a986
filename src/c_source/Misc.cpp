// Busy-waits on the time of day, which starts again from 0 at midnight.

#include "c_source/Misc.h"

namespace brenik {

void SLEEP(platform::Clock& clock, double seconds) {
    constexpr double kJustAfterMidnight = 2;
    const double start = clock.seconds();
    double now = start;
    while (now >= start && now < start + seconds && now >= kJustAfterMidnight) {
        now = clock.seconds();
    }
}

}  // namespace brenik
