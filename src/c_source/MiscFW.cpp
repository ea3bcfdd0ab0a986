// Beeps before it shows the box: the beep calls the user, the box waits for the user.

#include "c_source/MiscFW.h"

namespace brenik {

bool ERRBEEP(platform::UserInterface& ui, const std::string& message, const std::string& title,
             bool beep) {
    if (beep || message.empty()) ui.beep();
    if (!message.empty()) ui.message_box(message, title, platform::Icon::kStop);
    return false;
}

}  // namespace brenik
