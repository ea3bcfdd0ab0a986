// Colours that help a reader to find what matters.

#pragma once

#include <string>
#include <string_view>

#include "platform/console.h"

namespace brenik::tools {

enum class Colour { kFault, kNote, kHeading };

// The text in the colour. Unchanged if the stream is no terminal that takes escape codes, or if the
// environment sets NO_COLOR.
std::string coloured(Colour colour, std::string_view text,
                     platform::StandardStream stream = platform::StandardStream::kOutput);

}  // namespace brenik::tools
