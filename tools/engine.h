// The command `engine`: which engine opens the tables of a practice, and what the client library
// can do.

#pragma once

#include <string>

#include "practice.h"

namespace brenik::tools {

struct EngineRequest {
    std::string folder;
    bool all = false;    // names every function of the library; as JSON, every assumption too
    bool probe = false;  // tries out the library on scratch tables
    bool json = false;
};

// Prints the engine and the reason, the client library, its functions and the server that answers.
// kProblem if the practice's engine can open no table, or if a probe was refuted or could not run.
ExitCode print_engine(const EngineRequest& request);

}  // namespace brenik::tools
