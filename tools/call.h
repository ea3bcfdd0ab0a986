// `brenik call`: the support person's way to every routine of the library, from outside.
//
// One JSON array a line comes in, the routine's name first, then its arguments; one JSON line goes
// out for each. All lines run in one session.

#pragma once

#include <optional>
#include <string>

namespace brenik::tools {

struct CallRequest {
    std::optional<std::string> folder;  // opened by StartUp before the first line
    bool list = false;                  // print the names and arguments instead
};

void call_routines(const CallRequest& request);

}  // namespace brenik::tools
