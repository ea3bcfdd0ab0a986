// What the fuzz targets share: a folder in memory for their files, and the rule that they all judge
// by: whatever the bytes, the answer is a result or an EngineFault, soon, in bounded memory.

#pragma once

#include <cstdlib>

#include "unit/file_bytes.h"
#include "unit/temporary_folder.h"
#include "util/bytes.h"
#include "util/fault.h"

namespace brenik::fuzz {

// The folder of this process.
inline const TemporaryFolder& folder() {
    if (std::filesystem::is_directory("/dev/shm")) setenv("TMPDIR", "/dev/shm", 0);
    static const TemporaryFolder made;
    return made;
}

inline std::string write_file(const std::string& name, Bytes bytes) {
    const std::filesystem::path path = folder() / name;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << as_text(bytes);
    return path.string();
}

// These faults are answers; anything else that is thrown ends the process.
template <class Fault = EngineFault, class Work>
void allow_faults(Work work) {
    try {
        work();
    } catch (const Fault&) {
    }
}

// The next byte of an input, 0 at its end.
inline Byte take(Bytes& input) {
    if (input.empty()) return 0;
    const Byte byte = input.front();
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
