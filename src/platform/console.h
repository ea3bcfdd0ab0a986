// What a command-line program asks of its terminal, and its texts in UTF-8 on every system.
//
// For tools alone. Hosts own their console, so the library never includes this header.

#pragma once

#include <memory>
#include <string>
#include <vector>

namespace brenik::platform {

enum class StandardStream { kOutput, kError };

// False if the stream is redirected to a file or a pipe, or closed.
bool is_terminal(StandardStream stream);
// True if the terminal obeys escape codes for colours and the cursor. False for any other stream.
bool takes_escapes(StandardStream stream);
// The width of the terminal; 0 if the stream is no terminal, or its width is unknown.
int terminal_columns(StandardStream stream);

// True if the stream is a pipe. A write to one fails only when its reader has closed it.
bool is_pipe(StandardStream stream);
// True if the stream is redirected to a file of a disk.
bool is_disk_file(StandardStream stream);
// From now on a write to a pipe without a reader fails. Where the system would end the process
// instead, it would do so in the middle of any work.
void outlive_readers();

// Makes UTF-8 the encoding of everything that this program exchanges with the system as text. While
// the object lives, std::cout and std::cerr accept UTF-8, and show every character on a console of
// Windows. From its creation until the process ends, paths, environment variables and the system's
// messages are UTF-8 too. Create it once, at the start of main().
class ProgramText {
  public:
    ProgramText(int argc, char** argv);
    ~ProgramText();
    ProgramText(const ProgramText&) = delete;
    ProgramText& operator=(const ProgramText&) = delete;

    // The arguments in UTF-8, the program's name first. On Linux they keep every byte.
    const std::vector<std::string>& arguments() const { return arguments_; }

  private:
    class Console;

    std::vector<std::string> arguments_;
    std::unique_ptr<Console> console_;
};

}  // namespace brenik::platform
