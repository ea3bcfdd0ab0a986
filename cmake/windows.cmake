# Settings of every Windows program of the project. Included only if the target is Windows.

# Windows 7 is the oldest supported version.
add_compile_definitions(_WIN32_WINNT=0x0601 WINVER=0x0601 UNICODE _UNICODE NOMINMAX
  WIN32_LEAN_AND_MEAN)
# Programs import only system libraries. They support address randomisation, and data is not executable.
# Without a timestamp, the same sources always give the same image.
add_link_options(-static -static-libgcc -static-libstdc++
  LINKER:--dynamicbase,--nxcompat,--no-insert-timestamp)
# The symbols contain no path of the build, because their checksum is in the image. So a build in another
# folder gives the same image too.
add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
if(CMAKE_SIZEOF_VOID_P EQUAL 8)
  add_link_options(LINKER:--high-entropy-va)
else()
  # The compiler may split the rarely used part of a function off, and that part can be empty. Its unwind
  # entry then has the address of the next function and hides that function's own entry, so an exception
  # that passes through the next function ends the process.
  add_compile_options(-fno-reorder-blocks-and-partition)
endif()

# brenik_add_version(TARGET DESCRIPTION): adds the version resource that Windows displays.
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

# brenik_split_symbols(TARGET): moves the debugging symbols into a file named like TARGET's, plus .debug.
function(brenik_split_symbols target)
  set(file $<TARGET_FILE:${target}>)
  set(name $<TARGET_FILE_NAME:${target}>)
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND ${CMAKE_OBJCOPY} --only-keep-debug ${name} ${name}.debug
    COMMAND ${CMAKE_OBJCOPY} --strip-unneeded --add-gnu-debuglink=${name}.debug ${name}
    WORKING_DIRECTORY $<TARGET_FILE_DIR:${target}>
    VERBATIM)
endfunction()
