// The floor of a workload: its calls on files alone, without the library's work between them.
//
// While a recorder is on, it notes every call on a file that the library makes. A replay makes the
// same calls, of the same sizes at the same offsets, on a copy of the practice. Recording a call
// costs a few nanoseconds, which count as the library's. The benchmark's linker leads the library's
// calls here (--wrap in CMakeLists.txt).

#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <sys/types.h>

namespace brenik::bench {

struct RecordedCall {
    enum class Kind { kRead, kWrite, kLock, kStat, kStatPath };
    Kind kind;
    short lock_type;
    int lock_command;
    int descriptor;  // of kStatPath: the place of the path
    off_t offset;
    std::size_t length;
};

// What one slice of a workload has called.
struct Recording {
    std::vector<RecordedCall> calls;
    std::vector<std::string> paths;
};

// Notes calls between these two. `recording` must live as long, and is emptied first.
void start_recording(Recording& recording);
// False if the library has made calls that a recording cannot hold: opens, closes and resizes.
bool stop_recording();

// Makes recorded calls on a copy of the folder, which it makes and which must not exist yet.
class Replay {
  public:
    Replay(std::filesystem::path original, std::filesystem::path copy);
    ~Replay();
    Replay(const Replay&) = delete;
    Replay& operator=(const Replay&) = delete;

    // Opens the copies of the files that the recording names, and names the copies' descriptors and
    // paths in it. REQUIRES: the recorded files are still open.
    void prepare(Recording& recording);
    void run(const Recording& recording);

  private:
    std::filesystem::path copy_of(const std::filesystem::path& path) const;
    int descriptor_for(int original);

    std::filesystem::path original_;
    std::filesystem::path copy_;
    std::map<std::filesystem::path, int> open_;
    std::vector<unsigned char> buffer_;
};

}  // namespace brenik::bench
