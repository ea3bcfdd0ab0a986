// Local date and time of day from the system's real-time clock.

#include "platform/clock.h"

#include <ctime>

namespace brenik::platform {

namespace {

class SystemClock : public Clock {
  public:
    LocalDay today() override {
        const std::tm local = local_time(read());
        return {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday};
    }

    double seconds() override {
        const std::timespec now = read();
        const std::tm local = local_time(now);
        const long hundredths = now.tv_nsec / 10'000'000;
        return (local.tm_hour * 60 + local.tm_min) * 60 + local.tm_sec +
               static_cast<double>(hundredths) / 100;
    }

    void pause(int milliseconds) override {
        const std::timespec duration = {milliseconds / 1000, milliseconds % 1000 * 1'000'000L};
        nanosleep(&duration, nullptr);  // if a signal interrupts it, the next try comes sooner
    }

  private:
    static std::timespec read() {
        std::timespec now = {};
        clock_gettime(CLOCK_REALTIME, &now);
        return now;
    }

    static std::tm local_time(const std::timespec& moment) {
        std::tm local = {};
        localtime_r(&moment.tv_sec, &local);
        return local;
    }
};

}  // namespace

Clock& system_clock() {
    static SystemClock clock;
    return clock;
}

}  // namespace brenik::platform
