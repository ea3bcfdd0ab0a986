// A progress bar on standard error: how far the work is and how much time is left.
//
// The bar fits the width of the terminal and uses no escape codes. A terminal that cannot overwrite
// a line (TERM=dumb) gets a plain line every few seconds. Nothing is shown if standard error is no
// terminal, or in the first moments of the tool's work.

#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "engine/maintenance/finding.h"

namespace brenik::tools {

// What the work writes to standard output meanwhile. Beside a listing, the bar is shown only if the
// listing goes to a file: on the screen it is its own progress, and a pipe may lead to the screen.
enum class Output { kNothing, kListing };

class ProgressBar {
  public:
    explicit ProgressBar(std::string title, Output output = Output::kNothing);
    ~ProgressBar() { clear(); }
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    // The callback for the work; empty if nothing would be shown.
    maintenance::Progress progress();
    // `what` is the step of the work. A change of it begins the estimate of the time anew.
    void show(const std::string& what, std::uint64_t done, std::uint64_t total);
    // Removes the bar from the screen, before a line is printed.
    void clear();

  private:
    using Clock = std::chrono::steady_clock;

    std::string title_;
    bool visible_;
    std::size_t shown_width_ = 0;
    std::string what_;
    Clock::time_point begun_ = Clock::now();  // of the step
};

}  // namespace brenik::tools
