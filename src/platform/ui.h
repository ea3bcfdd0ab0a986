// What the person at the workstation sees and hears: the one door for notices, boxes and beeps.
//
// Windows builds show real windows, other builds write to standard error. The environment variable
// BRENIK_UI overrides it: "stderr" writes there, "none" shows nothing, "gui" wants windows. A
// process whose desktop nobody sees, such as a service, has no windows either way: nobody could
// dismiss its boxes. Silent or not, the self-closing notice always takes its full time, because it
// is the wait between two tries for a lock; the host's windows are kept painted meanwhile.

#pragma once

#include <memory>
#include <string>

namespace brenik::platform {

enum class Icon { kStop, kInformation };
enum class Cursor { kArrow, kWait };

class UserInterface {
  public:
    virtual ~UserInterface() = default;
    // A modal box; returns when it is dismissed.
    virtual void message_box(const std::string& text, const std::string& title, Icon icon) = 0;
    // Shows a notice for `duration_ms`, then closes it; returns after that time.
    virtual void notice(const std::string& text, const std::string& title, int duration_ms) = 0;
    virtual void beep() = 0;
    virtual void set_cursor(Cursor cursor) = 0;
};

// The interface that this machine and BRENIK_UI call for.
std::unique_ptr<UserInterface> make_user_interface();

// True when a person watches standard error, so that a line on it may be drawn over.
bool error_output_is_terminal();

}  // namespace brenik::platform
