// The report of an error to the person at the workstation.

#pragma once

#include <string>

#include "platform/ui.h"

namespace brenik {

// Sounds the error beep when `beep` is set or there is no message, shows the message, if any, in a
// modal box with the stop icon, and returns false, so that a routine can end with it. Without a
// title the box has its default one.
bool ERRBEEP(platform::UserInterface& ui, const std::string& message = {},
             const std::string& title = {}, bool beep = true);

}  // namespace brenik
