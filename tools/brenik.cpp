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
#include "reason.h"
#include "table_text.h"

namespace brenik::tools {
namespace {

ExitCode complain(const std::string& message, ExitCode code) {
    std::cerr << "brenik: " << to_line(message) << "\n";
    return code;
}

ExitCode run(const std::vector<std::string>& words) {
    try {
        return run_command_line(words);
    } catch (const ToolError& error) {
        return complain(error.what(), error.code());
    } catch (const EngineFault& fault) {
        return complain(fault.what(), exit_code_of(fault));
    } catch (const std::exception& error) {
        return complain(reason_of(error), ExitCode::kProblem);
    }
}

// A full disk shows only when the last output is written. A reader that has closed the pipe has
// seen what it wanted, so the command ends as it would have ended otherwise.
ExitCode finish_output(ExitCode code) {
    if (std::cout.flush() || platform::is_pipe(platform::StandardStream::kOutput)) return code;
    return complain(
        "standard output cannot be written, so it is incomplete; make room for it and run the "
        "command again",
        code == ExitCode::kOk ? ExitCode::kProblem : code);
}

}  // namespace
}  // namespace brenik::tools

// Outside run(), only a lack of memory throws.
// NOLINTNEXTLINE(bugprone-exception-escape)
int main(int argc, char** argv) {
    using namespace brenik;
    std::ios::sync_with_stdio(false);
    platform::outlive_readers();
    const platform::ProgramText text(argc, argv);
    const std::vector<std::string>& words = text.arguments();
    const std::vector<std::string> given(words.begin() + (words.empty() ? 0 : 1), words.end());
    return static_cast<int>(tools::finish_output(tools::run(given)));
}
