// The independent table checker (tests/judge) at the service of a test.

#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>

#include "places.h"

namespace brenik {

// Programs that cannot start the checker ask for it on standard output and read its answer, one
// line, from standard input: with_checker.py sits at the other ends.
inline testing::AssertionResult asked_right(const std::string& file, const std::string& options) {
    std::cout << "judge: " << file << " " << options << std::endl;
    std::string answer;
    std::getline(std::cin, answer);
    if (answer == "right") return testing::AssertionSuccess();
    return testing::AssertionFailure() << answer;
}

inline testing::AssertionResult judged_right(const std::string& file,
                                             const std::string& options = "") {
    if (std::getenv("BRENIK_ASK_FOR_CHECKER") != nullptr) return asked_right(file, options);
    const std::string report = file + ".report";
    const std::string command =
        "python3 " + std::string(kChecker) + " " + file + " " + options + " > " + report + " 2>&1";
    if (std::system(command.c_str()) == 0) return testing::AssertionSuccess();
    std::ifstream lines(report);
    return testing::AssertionFailure() << lines.rdbuf();
}

}  // namespace brenik
