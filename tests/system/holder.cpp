// Opens a table as the library does and keeps it, until its input ends.
//
//     holder FILE shared|exclusive [OFFSET]
//
// With an offset the byte there is locked too. One word tells what came of it.

#include <cstdlib>
#include <iostream>
#include <string>

#include "platform/file.h"

using namespace brenik::platform;

int main(int argc, char** argv) {
    if (argc < 3) return 2;
    const Sharing sharing =
        argv[2] == std::string("exclusive") ? Sharing::kExclusive : Sharing::kShared;
    File file = File::open(argv[1], OpenMode::kReadWrite, sharing);
    const bool held =
        file.is_open() && (argc < 4 || file.try_lock({std::strtoull(argv[3], nullptr, 10), 1}));
    std::cout << (held                                      ? "held"
                  : file.failure() == OpenFailure::kMissing ? "missing"
                                                            : "refused")
              << std::endl;
    std::cin.get();
    return 0;
}
