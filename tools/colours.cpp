// Wraps texts in escape codes.

#include "colours.h"

#include <cstdlib>

namespace brenik::tools {
namespace {

bool wants_colours() {
    const char* refusal = std::getenv("NO_COLOR");
    return refusal == nullptr || *refusal == '\0';
}

constexpr std::string_view code_of(Colour colour) {
    switch (colour) {
        case Colour::kFault:
            return "\x1b[31m";  // red
        case Colour::kNote:
            return "\x1b[33m";  // yellow
        case Colour::kHeading:
            return "\x1b[1m";  // bold
    }
    return "";
}

}  // namespace

std::string coloured(Colour colour, std::string_view text, platform::StandardStream stream) {
    if (!wants_colours() || !platform::takes_escapes(stream)) return std::string(text);
    return std::string(code_of(colour)) + std::string(text) + "\x1b[0m";
}

}  // namespace brenik::tools
