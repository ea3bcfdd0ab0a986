# Uses ccache where there is one and no other launcher is asked for. What it keeps serves other
# checkouts too: CCACHE_BASEDIR hides the checkout's path, CCACHE_NOHASHDIR that of the build folder.
find_program(BRENIK_CCACHE ccache)
if(BRENIK_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  foreach(language C CXX)
    set(CMAKE_${language}_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env
      CCACHE_BASEDIR=${CMAKE_SOURCE_DIR} CCACHE_NOHASHDIR=1 ${BRENIK_CCACHE})
  endforeach()
endif()
