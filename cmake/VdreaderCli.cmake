# CLI11, header only, for the programs: its folder alone behind one symbolic link, since the
# system's include folder would bring the native C headers into a cross build.
set(VDREADER_CLI11_HEADERS /usr/include/CLI CACHE PATH "Folder of the CLI11 headers")
if(NOT EXISTS ${VDREADER_CLI11_HEADERS}/CLI.hpp)
  message(FATAL_ERROR "CLI11 is missing (${VDREADER_CLI11_HEADERS}): install libcli11-dev")
endif()
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/cli-include)
file(CREATE_LINK ${VDREADER_CLI11_HEADERS} ${CMAKE_BINARY_DIR}/cli-include/CLI SYMBOLIC)

add_library(vdreader_cli INTERFACE)
target_include_directories(vdreader_cli SYSTEM INTERFACE ${CMAKE_BINARY_DIR}/cli-include)
# A program of these headers takes the optimiser minutes under sanitizers.
if(VDREADER_SANITIZE)
  target_compile_options(vdreader_cli INTERFACE -O0)
endif()
