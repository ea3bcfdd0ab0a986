// The command `call`: runs any routine of the library, for support and tests.
//
// Reads one JSON array per line, the routine's name first and then its arguments, and prints one
// JSON line for each. All lines run in one session.

#pragma once

#include <optional>
#include <string>

namespace brenik::tools {

struct CallRequest {
    std::optional<std::string> folder;  // opened by StartUp before the first line
    std::string engine = "embedded";    // without a folder
    bool list = false;                  // print the names and arguments instead
};

void call_routines(const CallRequest& request);

}  // namespace brenik::tools
