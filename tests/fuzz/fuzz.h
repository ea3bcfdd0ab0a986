// What the fuzz targets share: a folder in memory for their files, and the rule that they all judge
// by: whatever the bytes, the answer is a result or an EngineFault, soon, in bounded memory.

#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <span>
#include <string>

#include "util/fault.h"

namespace brenik::fuzz {

using Input = std::span<const std::uint8_t>;

// The folder of this process, empty at its start and gone after it.
inline const std::filesystem::path& folder() {
    struct Folder {
        Folder() {
            const bool memory = std::filesystem::is_directory("/dev/shm");
            std::string name = (memory ? "/dev/shm" : "/tmp") + std::string("/brenik-fuzz-XXXXXX");
            path = mkdtemp(name.data());
        }
        ~Folder() { std::filesystem::remove_all(path); }
        std::filesystem::path path;
    };
    static const Folder made;
    return made.path;
}

inline std::string write_file(const std::string& name, Input bytes) {
    const std::filesystem::path path = folder() / name;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    return path.string();
}

// Faults are answers; anything else that is thrown ends the process.
template <class Work>
void allow_faults(Work work) {
    try {
        work();
    } catch (const EngineFault&) {
    }
}

// The next byte of an input, 0 at its end.
inline std::uint8_t take(Input& input) {
    if (input.empty()) return 0;
    const std::uint8_t byte = input.front();
    input = input.subspan(1);
    return byte;
}

// Ends the process: what was promised has not been kept.
inline void require(bool kept) {
    if (!kept) __builtin_trap();
}

}  // namespace brenik::fuzz

// Called by the fuzzer, or by replay.cpp with files that are kept.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);
