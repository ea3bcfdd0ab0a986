// One stand-in for the function by which each system's files are written.

#include "recorded_writes.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <sys/syscall.h>
#include <unistd.h>
#endif

namespace brenik {

std::optional<std::vector<std::pair<std::uint64_t, std::vector<std::uint8_t>>>> recorded_writes;

namespace {

void record(std::uint64_t offset, const void* bytes, std::size_t count) {
    if (!recorded_writes) return;
    const auto* first = static_cast<const std::uint8_t*>(bytes);
    recorded_writes->emplace_back(offset, std::vector<std::uint8_t>(first, first + count));
}

}  // namespace

#ifdef _WIN32

namespace {

BOOL WINAPI write_file(HANDLE file, LPCVOID bytes, DWORD count, LPDWORD written,
                       LPOVERLAPPED place) {
    static const auto original = reinterpret_cast<decltype(&WriteFile)>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("kernel32"), "WriteFile")));
    if (place != nullptr) {
        record(std::uint64_t{place->OffsetHigh} << 32 | place->Offset, bytes, count);
    }
    return original(file, bytes, count, written, place);
}

}  // namespace

// The pointer by which all code calls an imported function.
extern "C" {
extern decltype(&WriteFile) imported_write_file asm("__imp__WriteFile@20");
decltype(&WriteFile) imported_write_file = write_file;
}

#else

extern "C" ssize_t pwrite(int file, const void* bytes, std::size_t count, off_t offset) {
    record(static_cast<std::uint64_t>(offset), bytes, count);
    return syscall(SYS_pwrite64, file, bytes, count, offset);
}

#endif

}  // namespace brenik
