# Header-only packages for cross builds, which do not search this machine's own include folder. A link in
# the build tree makes only the headers of one package reachable.
#
# brenik_header_only(TARGET FOLDER): the imported target TARGET offers the headers <FOLDER/...>.
function(brenik_header_only target folder)
  find_path(BRENIK_${folder}_PARENT ${folder} REQUIRED NO_CMAKE_FIND_ROOT_PATH
    PATHS /usr/include /usr/local/include)
  set(offered ${PROJECT_BINARY_DIR}/header_only/${folder})
  file(MAKE_DIRECTORY ${offered})
  file(CREATE_LINK ${BRENIK_${folder}_PARENT}/${folder} ${offered}/${folder} SYMBOLIC)
  add_library(${target} INTERFACE IMPORTED)
  target_include_directories(${target} INTERFACE ${offered})
endfunction()
