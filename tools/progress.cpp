// Draws the progress bar.

#include "progress.h"

#include <algorithm>
#include <cstdio>
#include <iostream>

#include "platform/ui.h"

namespace brenik::tools {
namespace {

constexpr int kBarWidth = 24;
constexpr std::chrono::milliseconds kFirstShown(400);
constexpr std::chrono::milliseconds kBetween(200);

}  // namespace

std::string progress_line(const std::string& title, std::uint64_t done, std::uint64_t total,
                          double seconds) {
    const double part =
        total == 0 ? 1 : std::min(1.0, static_cast<double>(done) / static_cast<double>(total));
    const auto filled = static_cast<std::size_t>(part * kBarWidth);
    const double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0;
    const double left = rate > 0 ? static_cast<double>(total - std::min(done, total)) / rate : 0;
    char numbers[64];
    std::snprintf(numbers, sizeof numbers, "] %3.0f %%  %.0f/s  %.0f s left", part * 100, rate,
                  left);
    return title + " [" + std::string(filled, '#') + std::string(kBarWidth - filled, '.') + numbers;
}

ProgressBar::ProgressBar(std::string title)
    : title_(std::move(title)), visible_(platform::error_output_is_terminal()) {}

maintenance::Progress ProgressBar::progress() {
    if (!visible_) return {};
    return [this](const std::string& what, std::uint64_t done, std::uint64_t total) {
        show(what, done, total);
    };
}

void ProgressBar::show(const std::string& what, std::uint64_t done, std::uint64_t total) {
    const Clock::time_point now = Clock::now();
    if (what != what_) {
        what_ = what;
        begun_ = last_ = now;
    }
    if (now - begun_ < kFirstShown || now - last_ < kBetween) return;
    last_ = now;
    shown_ = true;
    const double seconds = std::chrono::duration<double>(now - begun_).count();
    std::cerr << "\r\x1b[K" << progress_line(title_ + ", " + what, done, total, seconds)
              << std::flush;
}

void ProgressBar::clear() {
    if (shown_) std::cerr << "\r\x1b[K" << std::flush;
    shown_ = false;
}

}  // namespace brenik::tools
