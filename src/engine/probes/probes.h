// Tries out what a client library does where its documentation is silent, on scratch tables.
//
// The client engine relies on assumptions about the library (advantage/assumptions.h). Each names
// the probe that confirms or refutes it. A probe makes a small table with the embedded engine,
// opens it through the client library, does a few steps and tells what it saw. Two connections of
// this process stand for two workstations. `brenik engine DIR --probe` runs them all.

#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "engine/advantage/client_library.h"

namespace brenik::probes {

enum class Verdict {
    kConfirmed,
    kRefuted,
    kUnknown,  // the steps could not be done, or prove nothing on this server
};

struct Finding {
    advantage::U16 server_type;  // 0 for what concerns no server
    std::string_view probe;
    std::string_view expected;  // as a sentence
    Verdict verdict;
    std::string seen;
};

using Report = std::function<void(const Finding&)>;

// False if the library uses another calling convention, in which each call would damage the stack.
// REQUIRES: library.usable().
bool can_be_called(const advantage::ClientLibrary& library);

// Runs every probe on each server that answers for the folder, the local one first, and removes the
// scratch tables. Reports each probe as it ends. Returns false if no server answers, or if the
// library cannot be called: then only that is reported. Throws EngineFault if the scratch tables
// cannot be made in `folder`. REQUIRES: library.usable().
bool run(const advantage::ClientLibrary& library, const std::string& folder, const Report& report);

}  // namespace brenik::probes
