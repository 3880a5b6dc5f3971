# cmake -DSOURCE=DIR -DHEADER=FILE -P scripts/commit.cmake
# Writes a header with the commit that the sources are of, "" where they are not in a repository of their own.
# A header that says so already keeps its time, so that nothing is built again.
cmake_minimum_required(VERSION 3.25)
set(commit "")
find_program(GIT_PROGRAM git)
if(GIT_PROGRAM AND EXISTS ${SOURCE}/.git)
  execute_process(COMMAND ${GIT_PROGRAM} describe --always --abbrev=10 --dirty "--exclude=*"
                  WORKING_DIRECTORY ${SOURCE} OUTPUT_VARIABLE commit OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
string(REGEX REPLACE "-dirty$" " with changes" commit "${commit}")
if(NOT commit MATCHES "^[0-9a-f]+( with changes)?$")
  set(commit "")
endif()
file(CONFIGURE OUTPUT ${HEADER} CONTENT "#define KESTRALUM_COMMIT \"@commit@\"\n" @ONLY)
