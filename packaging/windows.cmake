# The files of the release archive for Windows hosts, and of the separate archive of symbols. scripts/package
# adds what is made at that time: the HTML pages, the sample practice and the checksums.

install(TARGETS BrenikDB brenik example_host COMPONENT package
  RUNTIME DESTINATION bin
  ARCHIVE DESTINATION lib)
install(FILES ${PROJECT_BINARY_DIR}/BrenikDB.lib ${PROJECT_BINARY_DIR}/BrenikDB.def
  DESTINATION lib COMPONENT package)
install(FILES ${PROJECT_SOURCE_DIR}/include/brenikdb.h DESTINATION include COMPONENT package)
install_for_users(.)
install(FILES $<TARGET_FILE:BrenikDB>.debug $<TARGET_FILE:brenik>.debug DESTINATION . COMPONENT symbols)

# What differs between 32 and 64 bits in the readme.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  set(package_bits 32)
  set(package_machine x86)
  set(package_convention "\
- Every function is __stdcall except BrenikShutDown, which is __cdecl. The header\r\n\
  declares them so. If you declare the functions yourself, do the same.")
else()
  set(package_bits 64)
  set(package_machine x64)
  set(package_convention "\
- All functions have the calling convention of 64-bit Windows.")
endif()
get_filename_component(package_compiler ${CMAKE_C_COMPILER} NAME)

# Texts get CRLF line ends, which Windows' own programs expect.
function(install_text source name)
  set(text ${CMAKE_CURRENT_BINARY_DIR}/${name})
  configure_file(${PROJECT_SOURCE_DIR}/${source} ${text} @ONLY NEWLINE_STYLE CRLF)
  install(FILES ${text} DESTINATION . COMPONENT package)
endfunction()
install_text(packaging/README.txt.in README.txt)
install_text(CHANGELOG.md CHANGELOG.md)
install_text(UPGRADING.md UPGRADING.md)
install_text(LICENSE LICENSE.txt)
install_text(packaging/NOTICES.txt NOTICES.txt)
