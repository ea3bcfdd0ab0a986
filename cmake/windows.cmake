# What every Windows program of the project has in common; included on Windows alone.

# Windows 7 is the oldest that is served.
add_compile_definitions(_WIN32_WINNT=0x0601 WINVER=0x0601 UNICODE _UNICODE NOMINMAX
  WIN32_LEAN_AND_MEAN)
# Nothing but system libraries is imported. Images may be placed anywhere, and data is not run. The
# same sources make the same image at any time.
add_link_options(-static -static-libgcc -static-libstdc++
  LINKER:--dynamicbase,--nxcompat,--no-insert-timestamp)
# Nor do they in another folder: the symbols, whose checksum is in the image, name none.
add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
if(CMAKE_SIZEOF_VOID_P EQUAL 8)
  add_link_options(LINKER:--high-entropy-va)
else()
  # A function's seldom part, put elsewhere, can be empty. Its unwind entry then has the address of
  # whatever follows, hides that one's, and an exception on its way through ends the process.
  add_compile_options(-fno-reorder-blocks-and-partition)
endif()

# brenik_add_version(TARGET DESCRIPTION): the version resource that Windows shows.
function(brenik_add_version target description)
  set(BRENIK_FILE_DESCRIPTION "${description}")
  get_target_property(type ${target} TYPE)
  set(BRENIK_FILE_TYPE VFT_APP)
  set(suffix ${CMAKE_EXECUTABLE_SUFFIX})
  if(type STREQUAL "SHARED_LIBRARY")
    set(BRENIK_FILE_TYPE VFT_DLL)
    set(suffix ${CMAKE_SHARED_LIBRARY_SUFFIX})
  endif()
  set(BRENIK_FILE_NAME ${target}${suffix})
  set(resource ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/version.rc.in ${resource} @ONLY)
  target_sources(${target} PRIVATE ${resource})
endfunction()

# brenik_split_symbols(TARGET): moves what debuggers need into TARGET's file name with .debug.
function(brenik_split_symbols target)
  set(file $<TARGET_FILE:${target}>)
  set(name $<TARGET_FILE_NAME:${target}>)
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND ${CMAKE_OBJCOPY} --only-keep-debug ${name} ${name}.debug
    COMMAND ${CMAKE_OBJCOPY} --strip-unneeded --add-gnu-debuglink=${name}.debug ${name}
    WORKING_DIRECTORY $<TARGET_FILE_DIR:${target}>
    VERBATIM)
endfunction()
