// A bar on standard error while something takes long: how far it is, how fast, how much longer.
//
// Nothing is shown where standard error is no terminal, nor before the work has taken a moment.

#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "engine/maintenance/maintenance.h"

namespace brenik::tools {

class ProgressBar {
  public:
    explicit ProgressBar(std::string title);
    ~ProgressBar() { clear(); }
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    // What to hand to the work; empty where nothing would be shown.
    maintenance::Progress progress();
    // Takes the bar off the screen, before a line is printed.
    void clear();

  private:
    using Clock = std::chrono::steady_clock;
    void show(const std::string& what, std::uint64_t done, std::uint64_t total);

    std::string title_;
    bool visible_;
    bool shown_ = false;
    std::string what_;
    Clock::time_point begun_;
    Clock::time_point last_;
};

// The line itself, without colour or control characters.
std::string progress_line(const std::string& title, std::uint64_t done, std::uint64_t total,
                          double seconds);

}  // namespace brenik::tools
