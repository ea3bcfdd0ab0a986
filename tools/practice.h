// A practice folder as the tool's commands see it: which tables there are, and how to open one.

#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "engine/engine.h"
#include "platform/file.h"
#include "practice/catalogue.h"

namespace brenik::tools {

// persistent: scripts depend on these exit codes.
enum class ExitCode { kOk = 0, kProblem = 1, kUsage = 2, kCannotOpen = 3, kLocked = 4 };

// Ends a command with an exit code and a message for the person at the keyboard.
class ToolError : public std::runtime_error {
  public:
    ToolError(ExitCode code, const std::string& message)
        : std::runtime_error(message), code_(code) {}
    ExitCode code() const { return code_; }

  private:
    ExitCode code_;
};

class Practice {
  public:
    // Its locks are those that the practice's settings ask hosts to use. Tables are opened with
    // this access: reading alone needs no permission to write.
    Practice(std::string folder, platform::OpenMode access);

    // Opens a table by file name or by alias, in any case. Throws ToolError when it is missing,
    // cannot be read, or is in somebody's exclusive use.
    std::unique_ptr<Table> open(std::string_view name);
    // The table that goes by this number; null when the practice has none.
    const practice::TableEntry* find(int number) const;

  private:
    std::string path_of(std::string_view file) const;

    std::string folder_;
    std::unique_ptr<Engine> engine_;
};

}  // namespace brenik::tools
