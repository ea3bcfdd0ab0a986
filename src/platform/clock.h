// The machine's clock: the date, the time of day, and waiting.
//
// An interface, so that tests of waits and of midnight take no real time.

#pragma once

namespace brenik::platform {

struct LocalDay {
    int year;
    int month;
    int day;
};

class Clock {
  public:
    virtual ~Clock() = default;
    virtual LocalDay today() = 0;
    // Seconds since local midnight, with hundredths.
    virtual double seconds() = 0;
    // Sleeps for that long.
    virtual void pause(int milliseconds) = 0;
};

Clock& system_clock();

}  // namespace brenik::platform
