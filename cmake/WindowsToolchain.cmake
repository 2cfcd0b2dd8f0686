# Cross build for 64-bit Windows: mingw-w64 with posix threads, whose run-time the library and its
# callers share.  Programs of the build run under Wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(VDREADER_TRIPLET x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${VDREADER_TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${VDREADER_TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${VDREADER_TRIPLET}-windres)
set(CMAKE_DLLTOOL ${VDREADER_TRIPLET}-dlltool)
set(CMAKE_OBJDUMP ${VDREADER_TRIPLET}-objdump)

# Nothing of the build machine's own headers and libraries is looked at; what both targets share
# (header-only libraries) is named with its folder.
set(CMAKE_FIND_ROOT_PATH /usr/${VDREADER_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

get_filename_component(CMAKE_CROSSCOMPILING_EMULATOR
  ${CMAKE_CURRENT_LIST_DIR}/../scripts/wine-run.sh ABSOLUTE)
