// Runs a fuzz target on every file of the given folders, without a fuzzer: `replay FOLDER...`.

#include <cstdio>

#include "fuzz.h"

// Fails if a folder is missing or empty: a run that replays nothing must not pass.
int main(int argc, char** argv) {
    bool each_has_files = argc > 1;
    for (int i = 1; i < argc; ++i) {
        each_has_files = each_has_files && !std::filesystem::is_empty(argv[i]);
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            std::puts(entry.path().filename().c_str());  // the last one named is the culprit
            std::fflush(stdout);
            const std::string bytes = brenik::bytes_of(entry.path());
            LLVMFuzzerTestOneInput(brenik::as_bytes(bytes).data(), bytes.size());
        }
    }
    return each_has_files ? 0 : 1;
}
