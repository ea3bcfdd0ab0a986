// Notices and boxes as lines on standard error.
//
// There are no windows here, so a box returns as soon as it is written. A notice still takes its
// full time, because it is the wait between two tries for a lock.

#include "platform/ui.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string_view>

#include "platform/notice_text.h"

namespace brenik::platform {

namespace {

void wait_ms(int duration_ms) {
    if (duration_ms <= 0) return;
    std::timespec rest = {duration_ms / 1000, duration_ms % 1000 * 1'000'000L};
    while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
    }
}

class SilentInterface : public UserInterface {
  public:
    void message_box(const std::string&, const std::string&, Icon) override {}
    void notice(const std::string&, const std::string&, int duration_ms) override {
        wait_ms(duration_ms);
    }
    void beep() override {}
    void set_cursor(Cursor) override {}
};

class StandardErrorInterface : public UserInterface {
  public:
    void message_box(const std::string& text, const std::string& title, Icon) override {
        show(text, title);
    }
    void notice(const std::string& text, const std::string& title, int duration_ms) override {
        show(text, title);
        wait_ms(duration_ms);
    }
    void beep() override {
        if (isatty(STDERR_FILENO) != 0) std::fputc('\a', stderr);
    }
    void set_cursor(Cursor) override {}

  private:
    static void show(const std::string& text, const std::string& title) {
        const std::string lines = readable(text, title);
        std::fwrite(lines.data(), 1, lines.size(), stderr);
    }
};

}  // namespace

std::unique_ptr<UserInterface> make_user_interface() {
    const char* wanted = std::getenv("BRENIK_UI");
    if (wanted != nullptr && std::string_view(wanted) == "none") {
        return std::make_unique<SilentInterface>();
    }
    return std::make_unique<StandardErrorInterface>();
}

}  // namespace brenik::platform
