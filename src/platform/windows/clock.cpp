// Local date and time of day from Windows.

#include "platform/clock.h"

#include <windows.h>

namespace brenik::platform {

namespace {

class SystemClock : public Clock {
  public:
    LocalDay today() override {
        const SYSTEMTIME now = read();
        return {now.wYear, now.wMonth, now.wDay};
    }

    double seconds() override {
        const SYSTEMTIME now = read();
        return (now.wHour * 60 + now.wMinute) * 60 + now.wSecond +
               static_cast<double>(now.wMilliseconds / 10) / 100;
    }

    void pause(int milliseconds) override { Sleep(static_cast<DWORD>(milliseconds)); }

  private:
    static SYSTEMTIME read() {
        SYSTEMTIME now;
        GetLocalTime(&now);
        return now;
    }
};

}  // namespace

Clock& system_clock() {
    static SystemClock clock;
    return clock;
}

}  // namespace brenik::platform
