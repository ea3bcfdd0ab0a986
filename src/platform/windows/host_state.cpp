// Saves both floating-point units, the last error and the thread's error mode.
//
// Uses the units' own instructions, because the C library's functions omit the newer unit's control
// word.

#include "platform/host_state.h"

#include <windows.h>
#include <xmmintrin.h>

#include <cstdint>
#include <cstring>

namespace brenik::platform {

namespace {

// The older unit's environment, as the processor stores it: control, status and tag word, and the
// place of the last fault.
struct FloatingPointEnvironment {
    std::uint32_t words[7];
};

constexpr unsigned kDefaultNewerUnit = 0x1F80;  // round to nearest, all exceptions masked

struct Found {
    FloatingPointEnvironment older_unit;
    unsigned newer_unit;
    DWORD error;
    DWORD error_mode;
};

}  // namespace

HostState::HostState() noexcept {
    static_assert(sizeof(Found) <= kRoom);
    Found found = {};
    found.error = GetLastError();
    __asm__ volatile("fnstenv %0\n\tfninit" : "=m"(found.older_unit));
    found.newer_unit = _mm_getcsr();
    _mm_setcsr(kDefaultNewerUnit);
    found.error_mode = GetThreadErrorMode();
    SetThreadErrorMode(found.error_mode | SEM_FAILCRITICALERRORS, nullptr);
    std::memcpy(found_.data(), &found, sizeof found);
}

HostState::~HostState() {
    Found found;
    std::memcpy(&found, found_.data(), sizeof found);
    SetThreadErrorMode(found.error_mode, nullptr);
    _mm_setcsr(found.newer_unit);
    __asm__ volatile("fldenv %0" : : "m"(found.older_unit));
    SetLastError(found.error);
}

}  // namespace brenik::platform
