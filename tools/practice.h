// A practice folder as the tool's commands use it: which tables it has, and how to open one.

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

// Ends a command with an exit code and a message for the user.
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
    // Uses the locking mode of the practice's settings, like hosts. Opens tables with `access`:
    // read-only access needs no write permission.
    Practice(std::string folder, platform::OpenMode access);

    // Opens a table by file name or alias, in any case. Throws ToolError if it is missing, cannot
    // be read or is held exclusively.
    std::unique_ptr<Table> open(std::string_view name);
    // The table with this number; null if the practice has none.
    const practice::TableEntry* find(int number) const;

  private:
    std::string path_of(std::string_view file) const;

    std::string folder_;
    std::unique_ptr<Engine> engine_;
};

}  // namespace brenik::tools
