// Notices, boxes and beeps for the user: everything the user sees and hears goes through here.
//
// Windows builds show windows; other builds write to standard error. The environment variable
// BRENIK_UI overrides this: "stderr" writes there, "none" shows nothing, "gui" asks for windows. A
// process on an invisible desktop, such as a service, never shows windows, because nobody could
// dismiss its boxes. Even when silent, the self-closing notice takes its full time, because it is
// the wait between two tries for a lock. The host's windows are painted in the meantime.

#pragma once

#include <memory>
#include <string>

namespace brenik::platform {

enum class Icon { kStop, kInformation };
enum class Cursor { kArrow, kWait };

class UserInterface {
  public:
    virtual ~UserInterface() = default;
    // Shows a modal box; returns when the user dismisses it.
    virtual void message_box(const std::string& text, const std::string& title, Icon icon) = 0;
    // Shows a notice for `duration_ms`, then closes it; returns after that time.
    virtual void notice(const std::string& text, const std::string& title, int duration_ms) = 0;
    virtual void beep() = 0;
    virtual void set_cursor(Cursor cursor) = 0;
};

// The interface for this machine and the value of BRENIK_UI.
std::unique_ptr<UserInterface> make_user_interface();

}  // namespace brenik::platform
