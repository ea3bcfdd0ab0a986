// Notices and boxes as lines on standard error.

#pragma once

#include <string>

namespace brenik::platform {

// One line for each line of the text, after the title, "Error" where there is none; anything that
// could steer a terminal becomes a dot.
std::string readable(const std::string& text, const std::string& title);

}  // namespace brenik::platform
