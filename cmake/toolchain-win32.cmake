# Builds 32-bit Windows programs with Debian's package g++-mingw-w64-i686.
set(BRENIK_WINDOWS_PREFIX i686-w64-mingw32)
set(CMAKE_SYSTEM_PROCESSOR x86)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-mingw.cmake)

# SSE calculates doubles in 64 bits, as on every other system, whatever precision the host has set for the
# x87 unit. Hosts align the stack to 4 bytes only, so functions realign it.
set(BRENIK_FLAGS "-msse2 -mfpmath=sse -mstackrealign")
set(CMAKE_C_FLAGS_INIT "${BRENIK_FLAGS}")
set(CMAKE_CXX_FLAGS_INIT "${BRENIK_FLAGS}")
