// Terminals of POSIX systems, whose texts are taken to be UTF-8.

#include "platform/console.h"

#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string_view>

namespace brenik::platform {

namespace {

int descriptor_of(StandardStream stream) {
    return stream == StandardStream::kOutput ? STDOUT_FILENO : STDERR_FILENO;
}

mode_t mode_of(StandardStream stream) {
    struct stat facts {};
    return fstat(descriptor_of(stream), &facts) == 0 ? facts.st_mode : 0;
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

bool is_pipe(StandardStream stream) {
    const mode_t mode = mode_of(stream);
    return S_ISFIFO(mode) || S_ISSOCK(mode);
}

bool is_disk_file(StandardStream stream) { return S_ISREG(mode_of(stream)); }

void outlive_readers() { std::signal(SIGPIPE, SIG_IGN); }

}  // namespace brenik::platform
