# 32-bit Windows programs, made by Debian's package g++-mingw-w64-i686.
set(BRENIK_WINDOWS_PREFIX i686-w64-mingw32)
set(CMAKE_SYSTEM_PROCESSOR x86)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-mingw.cmake)

# Doubles are calculated as on every other system: in 64 bits, whatever precision the host has set
# for the old floating-point unit. Hosts keep stacks aligned to no more than 4 bytes.
set(BRENIK_FLAGS "-msse2 -mfpmath=sse -mstackrealign")
set(CMAKE_C_FLAGS_INIT "${BRENIK_FLAGS}")
set(CMAKE_CXX_FLAGS_INIT "${BRENIK_FLAGS}")
