# Uses ccache if it is installed and no other launcher is set. Checkouts share its cache: CCACHE_BASEDIR
# hides the path of the checkout, CCACHE_NOHASHDIR that of the build folder.
find_program(BRENIK_CCACHE ccache)
if(BRENIK_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  foreach(language C CXX)
    set(CMAKE_${language}_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env
      CCACHE_BASEDIR=${CMAKE_SOURCE_DIR} CCACHE_NOHASHDIR=1 ${BRENIK_CCACHE})
  endforeach()
endif()
