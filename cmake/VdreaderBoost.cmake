# Boost 1.81 of the distribution: vdreader_boost_headers, and vdreader_boost_filesystem, which is
# the distribution's library on Linux and is compiled from the distribution's sources for Windows.

add_library(vdreader_boost_headers INTERFACE)
target_compile_definitions(vdreader_boost_headers INTERFACE BOOST_ALL_NO_LIB)
add_library(vdreader_boost_filesystem INTERFACE)

if(NOT WIN32)
  find_package(Boost 1.81 REQUIRED COMPONENTS filesystem)
  target_link_libraries(vdreader_boost_headers INTERFACE Boost::headers)
  target_link_libraries(vdreader_boost_filesystem INTERFACE
    vdreader_boost_headers Boost::filesystem)
  return()
endif()

# The headers are seen through a link of their own: the folder that holds them holds the headers of
# the build machine's C library as well.
set(VDREADER_BOOST_HEADERS /usr/include/boost CACHE PATH "Folder of the Boost headers")
if(NOT EXISTS ${VDREADER_BOOST_HEADERS}/version.hpp)
  message(FATAL_ERROR "Boost's headers are missing: run scripts/install-deps.sh build-windows")
endif()
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/boost-include)
file(CREATE_LINK ${VDREADER_BOOST_HEADERS} ${CMAKE_BINARY_DIR}/boost-include/boost SYMBOLIC)
target_include_directories(vdreader_boost_headers SYSTEM INTERFACE
  ${CMAKE_BINARY_DIR}/boost-include)
target_compile_definitions(vdreader_boost_headers INTERFACE
  _WIN32_WINNT=0x0A00 BOOST_FILESYSTEM_STATIC_LINK=1)

if(DEFINED ENV{XDG_CACHE_HOME})
  set(VDREADER_CACHE $ENV{XDG_CACHE_HOME}/vdreader)
else()
  set(VDREADER_CACHE $ENV{HOME}/.cache/vdreader)
endif()
file(GLOB VDREADER_BOOST_FETCHED ${VDREADER_CACHE}/boost-1.81*/libs/filesystem/src)
list(POP_BACK VDREADER_BOOST_FETCHED VDREADER_BOOST_NEWEST)
set(VDREADER_BOOST_FILESYSTEM "${VDREADER_BOOST_NEWEST}" CACHE PATH
  "Folder of Boost.Filesystem's sources, of the headers' version")
if(NOT EXISTS ${VDREADER_BOOST_FILESYSTEM}/operations.cpp)
  message(FATAL_ERROR
    "Boost.Filesystem's sources are missing: run scripts/install-deps.sh build-windows")
endif()

set(VDREADER_BOOST_SOURCES codecvt_error_category directory exception operations path path_traits
  portability unique_path utf8_codecvt_facet windows_file_codecvt)
list(TRANSFORM VDREADER_BOOST_SOURCES PREPEND ${VDREADER_BOOST_FILESYSTEM}/)
list(TRANSFORM VDREADER_BOOST_SOURCES APPEND .cpp)
add_library(vdreader_boost_filesystem_objects STATIC EXCLUDE_FROM_ALL ${VDREADER_BOOST_SOURCES})
set_target_properties(vdreader_boost_filesystem_objects PROPERTIES EXPORT_COMPILE_COMMANDS OFF)
target_compile_definitions(vdreader_boost_filesystem_objects PRIVATE
  BOOST_FILESYSTEM_SOURCE BOOST_FILESYSTEM_NO_CXX20_ATOMIC_REF)
target_compile_options(vdreader_boost_filesystem_objects PRIVATE -w)
target_link_libraries(vdreader_boost_filesystem_objects PUBLIC vdreader_boost_headers bcrypt)
target_link_libraries(vdreader_boost_filesystem INTERFACE vdreader_boost_filesystem_objects)
