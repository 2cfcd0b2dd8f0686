# Language, warnings and code generation that every target of the project shares.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 99)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
# Installed programs find the library in the tree that they stand in.
set(CMAKE_INSTALL_RPATH $ORIGIN/../${CMAKE_INSTALL_LIBDIR})

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_C_FLAGS_RELEASE "-O2 -DNDEBUG")

add_library(vdreader_flags INTERFACE)
# DWARF 4: the debug help library of Windows finds no lines in newer forms.  Faults become
# exceptions in frames that call nothing that throws, hence -fnon-call-exceptions.
target_compile_options(vdreader_flags INTERFACE
  -Wall -Wextra -gdwarf-4 $<TARGET_PROPERTY:VDREADER_DEBUG_INFO>
  -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # Bounded copies and fixed clears as calls: inlined string instructions cost three times as much.
  target_compile_options(vdreader_flags INTERFACE -fnon-call-exceptions -mstringop-strategy=libcall)
endif()

set(VDREADER_SANITIZE "" CACHE STRING "Sanitizers, as for -fsanitize=")
if(VDREADER_SANITIZE)
  # -O1: compiles in two thirds of the time, and reports show the frames as they are written.
  add_compile_options(-O1 -fsanitize=${VDREADER_SANITIZE} -fno-omit-frame-pointer
    -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${VDREADER_SANITIZE})
  add_compile_definitions(VDREADER_SANITIZED)
endif()
