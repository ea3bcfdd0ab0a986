// Formats notices and boxes as lines for standard error.

#pragma once

#include <string>

namespace brenik::platform {

// The title ("Error" if empty), then the text's lines. A character that could control a terminal
// becomes a dot.
std::string readable(const std::string& text, const std::string& title);

}  // namespace brenik::platform
