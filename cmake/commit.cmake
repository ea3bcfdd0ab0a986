# Writes the source that tells the version and the commit of the build:
#
#     cmake -Dsource=FOLDER -Dtemplate=FILE -Doutput=FILE -Dversion=NUMBER -P commit.cmake
#
# Runs in every build and changes the output only if its text changes, so a commit compiles one small file again.
# A folder that is no checkout of its own, such as an unpacked archive, has no commit. The commit is followed by
# "+changes" if the checkout differs from it.

set(commit)
set(day)
find_program(git git)

# git_says(VARIABLE WORD...): the output of a git command, or nothing.
function(git_says variable)
  execute_process(COMMAND ${git} -C ${source} ${ARGN}
    OUTPUT_VARIABLE output OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  set(${variable} "${output}" PARENT_SCOPE)
endfunction()

if(git)
  git_says(top rev-parse --show-toplevel)
  file(REAL_PATH ${source} real_source)
  if(top STREQUAL real_source)
    git_says(commit rev-parse HEAD)
    string(SUBSTRING "${commit}" 0 12 commit)
    git_says(day log -1 --format=%cs)
    git_says(changes status --porcelain --untracked-files=no)
    if(changes)
      string(APPEND commit "+changes")
    endif()
  endif()
endif()
# Without a commit, pages carry the day of the build, which SOURCE_DATE_EPOCH sets.
if(NOT day)
  string(TIMESTAMP day "%Y-%m-%d" UTC)
endif()
configure_file(${template} ${output} @ONLY)
