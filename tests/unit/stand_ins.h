// Stand-ins for what surrounds the operations: a clock that advances with every reading, and a user
// interface that records what it shows.

#pragma once

#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "platform/clock.h"
#include "platform/ui.h"
#include "util/date.h"

namespace brenik::fake {

// The rows of a test that runs once per row.
template <class... Cells>
using Rows = std::vector<std::tuple<Cells...>>;

// Each reading advances the time of day by one step, and past midnight begins again near 0.
class Clock : public platform::Clock {
  public:
    platform::LocalDay today() override {
        const CivilDay day = today_.civil();
        return {day.year, day.month, day.day};
    }
    double seconds() override { return now_ += now_ + step_ < 86400 ? step_ : step_ - 86400; }
    void pause(int milliseconds) override { now_ += milliseconds / 1000.0; }

    Date today_ = Date::from_civil(1998, 1, 1);
    double now_ = 1000;
    double step_ = 0.05;
};

class UserInterface : public platform::UserInterface {
  public:
    void message_box(const std::string& text, const std::string& title, platform::Icon) override {
        boxes.push_back(title + ": " + text);
    }
    void notice(const std::string& text, const std::string& title, int duration_ms) override {
        notices.push_back(title + ": " + text);
        waited_ms += duration_ms;
        waiting();
    }
    void beep() override { ++beeps; }
    void set_cursor(platform::Cursor cursor) override {
        if (cursor != platform::Cursor::kWait) return;
        ++waits;
        waiting();
    }

    std::vector<std::string> boxes;
    std::vector<std::string> notices;
    int waited_ms = 0;
    int waits = 0;
    int beeps = 0;
    std::function<void()> waiting = [] {};  // called at each notice and each wait
};

}  // namespace brenik::fake
