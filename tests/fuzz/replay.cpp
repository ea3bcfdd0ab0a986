// Runs a fuzz target over files that are kept, without a fuzzer: `replay FOLDER...`.

#include <cstdio>
#include <iterator>
#include <vector>

#include "fuzz.h"

namespace {

void replay(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    std::fprintf(stderr, "%s\n", path.filename().c_str());  // the last one named is the culprit
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

// A folder that is missing or empty would replay nothing, and pass.
int main(int argc, char** argv) {
    int count = 0;
    bool each_has_files = argc > 1;
    for (int i = 1; i < argc; ++i) {
        const int before = count;
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            replay(entry.path());
            ++count;
        }
        each_has_files = each_has_files && count > before;
    }
    std::printf("%d files\n", count);
    return each_has_files ? 0 : 1;
}
