// A progress bar on standard error: how far the work is, how fast, and how much time is left.
//
// Nothing is shown if standard error is no terminal, or in the first moments of the work.

#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "engine/maintenance/finding.h"

namespace brenik::tools {

class ProgressBar {
  public:
    explicit ProgressBar(std::string title);
    ~ProgressBar() { clear(); }
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    // The callback for the work; empty if nothing would be shown.
    maintenance::Progress progress();
    // Removes the bar from the screen, before a line is printed.
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

// The text of the bar, without colours or control characters.
std::string progress_line(const std::string& title, std::uint64_t done, std::uint64_t total,
                          double seconds);

}  // namespace brenik::tools
