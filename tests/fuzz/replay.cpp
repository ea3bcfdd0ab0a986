// Runs a fuzz target over files that are kept, without a fuzzer: `replay FOLDER...`.

#include <cstdio>

#include "fuzz.h"

// A folder that is missing or empty would replay nothing, and pass.
int main(int argc, char** argv) {
    bool each_has_files = argc > 1;
    for (int i = 1; i < argc; ++i) {
        each_has_files = each_has_files && !std::filesystem::is_empty(argv[i]);
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            std::puts(entry.path().filename().c_str());  // the last one named is the culprit
            std::fflush(stdout);
            const std::string bytes = brenik::fuzz::read_file(entry.path());
            LLVMFuzzerTestOneInput(brenik::as_bytes(bytes).data(), bytes.size());
        }
    }
    return each_has_files ? 0 : 1;
}
