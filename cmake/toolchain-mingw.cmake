# Settings that the two Windows toolchains share. They set BRENIK_WINDOWS_PREFIX and include this file.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_C_COMPILER ${BRENIK_WINDOWS_PREFIX}-gcc)
set(CMAKE_CXX_COMPILER ${BRENIK_WINDOWS_PREFIX}-g++)
set(CMAKE_RC_COMPILER ${BRENIK_WINDOWS_PREFIX}-windres)

# Programs are found on this machine; libraries and headers only in the target's folder.
set(CMAKE_FIND_ROOT_PATH /usr/${BRENIK_WINDOWS_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
