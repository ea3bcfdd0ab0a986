// Reports an error to the user.

#pragma once

#include <string>

#include "platform/ui.h"

namespace brenik {

// Beeps if `beep` is set or there is no message. Shows the message, if any, in a modal box with the
// stop icon; without a title the box has the system's default. Always returns false, so that a
// routine can return the call.
bool ERRBEEP(platform::UserInterface& ui, const std::string& message = {},
             const std::string& title = {}, bool beep = true);

}  // namespace brenik
