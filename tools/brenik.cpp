// The companion tool: makes sample practices, shows tables and records, prints the journal, checks
// and repairs files, tests whether a share is sound, prints the fault file, and calls any routine
// of the library. commands.cpp has the table of its commands.
//
// Data goes to standard output, messages to standard error. Exit codes: 0 success, 1 a problem was
// found, 2 wrong usage, 3 a file cannot be opened, 4 another program holds a lock or no partner
// came.

#include <iostream>
#include <string>
#include <vector>

#include "command_line.h"
#include "platform/console.h"
#include "practice.h"

namespace brenik::tools {
namespace {

ExitCode complain(const char* message, ExitCode code) {
    std::cerr << "brenik: " << message << "\n";
    return code;
}

ExitCode run(const std::vector<std::string>& words) {
    try {
        return run_command_line(words);
    } catch (const ToolError& error) {
        return complain(error.what(), error.code());
    } catch (const EngineFault& fault) {
        return complain(fault.what(),
                        fault.code() == FaultCode::kBusy ? ExitCode::kLocked : ExitCode::kProblem);
    } catch (const std::exception& error) {
        return complain(error.what(), ExitCode::kProblem);
    }
}

}  // namespace
}  // namespace brenik::tools

// Outside run(), only a lack of memory throws.
// NOLINTNEXTLINE(bugprone-exception-escape)
int main(int argc, char** argv) {
    using namespace brenik::tools;
    std::ios::sync_with_stdio(false);
    const brenik::platform::ProgramText text(argc, argv);
    const auto& words = text.arguments();
    const ExitCode code = run({words.begin() + (words.empty() ? 0 : 1), words.end()});
    // A full disk or a closed pipe shows only when the last output is written.
    if (!std::cout.flush() && code == ExitCode::kOk) {
        std::cerr << "brenik: standard output cannot be written\n";
        return static_cast<int>(ExitCode::kProblem);
    }
    return static_cast<int>(code);
}
