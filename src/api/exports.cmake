# Makes the link-time lists of the twelve exports from exports.txt.
#
# On 32-bit Windows, functions that remove their own arguments have a decorated symbol,
# "Name@bytes", but are exported by their plain names. That takes two definition files. One maps the
# plain names to the symbols and links the library. The other has the decorated names; a tool that
# drops the decoration makes import libraries for clients from it. Marking the functions for export
# in the source would export each of them twice.
set(exports_table ${CMAKE_CURRENT_SOURCE_DIR}/exports.txt)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${exports_table})
file(STRINGS ${exports_table} rows REGEX "^[0-9]")

set(plain_names)
set(linked_exports)
set(imported_exports)
foreach(row IN LISTS rows)
  separate_arguments(row UNIX_COMMAND "${row}")
  list(GET row 0 ordinal)
  list(GET row 1 name)
  list(GET row 2 argument_bytes)
  set(symbol ${name})
  set(alias)
  if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86" AND NOT argument_bytes STREQUAL "-")
    set(symbol ${name}@${argument_bytes})
    set(alias "=${symbol}")
  endif()
  string(APPEND plain_names "    ${name};\n")
  string(APPEND linked_exports "    ${name}${alias} @${ordinal}\n")
  string(APPEND imported_exports "    ${symbol} @${ordinal}\n")
endforeach()

# brenik_limit_exports(TARGET): exports the twelve functions and hides all C++ symbols.
function(brenik_limit_exports target)
  if(WIN32)
    set(list ${CMAKE_CURRENT_BINARY_DIR}/linked.def)
    file(CONFIGURE OUTPUT ${list} CONTENT "LIBRARY ${target}.dll\nEXPORTS\n${linked_exports}")
    target_sources(${target} PRIVATE ${list})
  else()
    set(list ${CMAKE_CURRENT_BINARY_DIR}/linked.map)
    file(CONFIGURE OUTPUT ${list} CONTENT "{\n  global:\n${plain_names}  local:\n    *;\n};\n")
    target_link_options(${target} PRIVATE LINKER:--version-script=${list})
    set_target_properties(${target} PROPERTIES LINK_DEPENDS ${list})
  endif()
endfunction()

# brenik_import_libraries(TARGET): writes the definition file for clients beside the library, and
# makes two import libraries from it. One replaces the linker's own, which no client could link
# with. The other has the format of Microsoft's linker and imports by undecorated name.
function(brenik_import_libraries target)
  set(definition ${PROJECT_BINARY_DIR}/${target}.def)
  set(remark)
  if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86")
    set(remark "; The library exports these names without their decoration: to make an import library\n\
; from this file, use a tool that drops it, as dlltool --kill-at does.\n")
  endif()
  file(CONFIGURE OUTPUT ${definition}
    CONTENT "${remark}LIBRARY ${target}.dll\nEXPORTS\n${imported_exports}")
  find_program(BRENIK_LLVM_DLLTOOL NAMES llvm-dlltool llvm-dlltool-14 REQUIRED)
  set(machine i386:x86-64)
  if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86")
    set(machine i386)
  endif()
  set_target_properties(${target} PROPERTIES
    ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}
    IMPORT_PREFIX lib
    LINK_DEPENDS ${definition})
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND ${CMAKE_COMMAND} -E rm -f $<TARGET_LINKER_FILE_NAME:${target}>
    COMMAND ${CMAKE_DLLTOOL} --kill-at --input-def ${target}.def
            --output-lib $<TARGET_LINKER_FILE_NAME:${target}>
    COMMAND ${BRENIK_LLVM_DLLTOOL} -k -m ${machine} -d ${target}.def -l ${target}.lib
    WORKING_DIRECTORY ${PROJECT_BINARY_DIR}  # the tools name symbols after the paths that they get
    VERBATIM)
endfunction()
