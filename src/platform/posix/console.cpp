// Terminals of POSIX systems, whose texts are taken to be UTF-8.

#include "platform/console.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace brenik::platform {

namespace {

int descriptor_of(StandardStream stream) {
    return stream == StandardStream::kOutput ? STDOUT_FILENO : STDERR_FILENO;
}

}  // namespace

class ProgramText::Console {};

ProgramText::ProgramText(int argc, char** argv) : arguments_(argv, argv + argc) {}
ProgramText::~ProgramText() = default;

bool is_terminal(StandardStream stream) { return isatty(descriptor_of(stream)) == 1; }

bool takes_escapes(StandardStream stream) {
    const char* terminal = std::getenv("TERM");
    const std::string_view kind = terminal == nullptr ? "" : terminal;
    return is_terminal(stream) && !kind.empty() && kind != "dumb";
}

int terminal_columns(StandardStream stream) {
    winsize size{};
    if (!is_terminal(stream) || ioctl(descriptor_of(stream), TIOCGWINSZ, &size) != 0) return 0;
    return size.ws_col;
}

}  // namespace brenik::platform
