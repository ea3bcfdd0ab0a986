// Draws the progress bar.

#include "progress.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>

#include "platform/console.h"
#include "table_text.h"
#include "util/runtime.h"

namespace brenik::tools {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kScreen = platform::StandardStream::kError;
constexpr std::chrono::milliseconds kFirstShown(400);
constexpr std::chrono::milliseconds kBetween(200);
constexpr std::chrono::seconds kBetweenLines(5);  // on a terminal that cannot overwrite them
constexpr double kEstimable_s = 0.5;              // before, an estimate would jump about
constexpr std::size_t kUsualColumns = 80;
constexpr std::size_t kLeastBar = 8;
constexpr std::size_t kMostBar = 40;

// When the tool began, and last drew the bar: many short steps can take long together.
struct Work {
    Clock::time_point begun = Clock::now();
    Clock::time_point shown;
};

Work& work() {
    static Work only;
    return only;
}

// How many columns a character takes whose UTF-8 begins with this byte. Most characters of three
// bytes and more are as wide as two letters on a terminal.
std::size_t columns_of(unsigned char byte) {
    if ((byte & 0xC0) == 0x80) return 0;
    return byte >= 0xE0 ? 2 : 1;
}

std::size_t width_of(const std::string& text) {
    std::size_t width = 0;
    for (const char each : text) width += columns_of(static_cast<unsigned char>(each));
    return width;
}

// The text in at most `width` columns; what does not fit becomes three dots.
std::string shortened(const std::string& text, std::size_t width) {
    if (width_of(text) <= width) return text;
    constexpr std::string_view kDots = "...";
    std::size_t used = kDots.size();
    std::size_t end = 0;
    for (; end < text.size(); ++end) {
        used += columns_of(static_cast<unsigned char>(text[end]));
        if (used > width) break;
    }
    return text.substr(0, end) + std::string(kDots.substr(0, width));
}

std::string time_text(double seconds) {
    const auto whole = std::llround(std::ceil(seconds));
    char text[48];
    if (whole < 60) {
        std::snprintf(text, sizeof text, "%lld s", whole);
    } else if (whole < 3600) {
        std::snprintf(text, sizeof text, "%lld:%02lld min", whole / 60, whole % 60);
    } else {
        std::snprintf(text, sizeof text, "%lld:%02lld h", whole / 3600, whole / 60 % 60);
    }
    return text;
}

struct Step {
    double part;     // from 0 to 1
    double rate;     // per second
    double seconds;  // so far
    std::uint64_t remaining;

    std::string percent() const {
        char text[16];
        std::snprintf(text, sizeof text, "%3.0f %%", part * 100);
        return text;
    }
    std::string left() const {
        if (seconds < kEstimable_s || rate <= 0 || remaining == 0) return {};
        return time_text(static_cast<double>(remaining) / rate) + " left";
    }
};

Step step_of(std::uint64_t done, std::uint64_t total, double seconds) {
    const std::uint64_t counted = std::min(done, total);
    const double part = total == 0 ? 1 : static_cast<double>(counted) / static_cast<double>(total);
    const double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0;
    return {part, rate, seconds, total - counted};
}

std::string full_title(const std::string& title, const std::string& what) {
    return to_line(title + (what.empty() ? "" : ", " + what));
}

// If the line is too long, drops the name of the step, then the time left, then the bar.
std::string bar_line(const std::string& title, const std::string& what, const Step& step,
                     std::size_t columns) {
    const std::size_t bar = std::clamp(columns / 4, kLeastBar, kMostBar);
    const auto filled = static_cast<std::size_t>(step.part * static_cast<double>(bar));
    std::string end =
        " [" + std::string(filled, '#') + std::string(bar - filled, '.') + "] " + step.percent();
    if (end.size() > columns) return shortened(step.percent(), columns);
    const std::string left = step.left().empty() ? "" : "  " + step.left();
    if (end.size() + left.size() <= columns) end += left;
    const std::size_t room = columns - end.size();
    const std::string full = full_title(title, what);
    return (width_of(full) <= room ? full : shortened(title, room)) + end;
}

}  // namespace

ProgressBar::ProgressBar(std::string title, Output output)
    : title_(std::move(title)),
      visible_(platform::is_terminal(kScreen) &&
               (output == Output::kNothing ||
                platform::is_disk_file(platform::StandardStream::kOutput))) {
    work();
}

maintenance::Progress ProgressBar::progress() {
    if (!visible_) return {};
    return [this](const std::string& what, std::uint64_t done, std::uint64_t total) {
        show(what, done, total);
    };
}

void ProgressBar::show(const std::string& what, std::uint64_t done, std::uint64_t total) {
    if (!visible_) return;
    const Clock::time_point now = Clock::now();
    if (what != what_) {
        what_ = what;
        begun_ = now;
    }
    const bool overwrites = platform::takes_escapes(kScreen);
    const Clock::duration between = overwrites ? Clock::duration(kBetween) : kBetweenLines;
    if (now - work().begun < kFirstShown || now - work().shown < between) return;
    work().shown = now;
    const Step step = step_of(done, total, std::chrono::duration<double>(now - begun_).count());
    if (!overwrites) {
        const std::string left = step.left();
        std::cerr << full_title(title_, what) << ":" << step.percent() << (left.empty() ? "" : ", ")
                  << left << std::endl;
        return;
    }
    const int columns = platform::terminal_columns(kScreen);
    // The last column stays free: some terminals begin a new line after it.
    const std::string line = bar_line(
        title_, what, step, (columns > 0 ? static_cast<std::size_t>(columns) : kUsualColumns) - 1);
    const std::size_t width = width_of(line);
    std::cerr << "\r" << line << std::string(shown_width_ - std::min(shown_width_, width), ' ')
              << std::flush;
    shown_width_ = width;
}

void ProgressBar::clear() {
    if (shown_width_ > 0) {
        std::cerr << "\r" << std::string(shown_width_, ' ') << "\r" << std::flush;
    }
    shown_width_ = 0;
}

}  // namespace brenik::tools
