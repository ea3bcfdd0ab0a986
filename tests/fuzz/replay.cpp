// Runs a fuzz target over files that are kept, without a fuzzer: `replay FILE-OR-FOLDER...`.

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

int main(int argc, char** argv) {
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        if (!std::filesystem::is_directory(argv[i])) continue;
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            replay(entry.path());
            ++count;
        }
    }
    std::printf("%d files\n", count);
    return count == 0 ? 1 : 0;
}
