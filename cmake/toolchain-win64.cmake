# Builds 64-bit Windows programs with Debian's package g++-mingw-w64-x86-64.
set(BRENIK_WINDOWS_PREFIX x86_64-w64-mingw32)
set(CMAKE_SYSTEM_PROCESSOR AMD64)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-mingw.cmake)
