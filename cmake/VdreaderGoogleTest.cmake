# GoogleTest, compiled from the distribution's sources for the target and the sanitizers of this
# build: GTest::gtest and GTest::gtest_main.
set(VDREADER_GOOGLETEST /usr/src/googletest/googletest CACHE PATH "Folder of GoogleTest's sources")
if(NOT EXISTS ${VDREADER_GOOGLETEST}/src/gtest-all.cc)
  message(FATAL_ERROR "GoogleTest's sources are missing: run scripts/install-deps.sh test")
endif()

find_package(Threads REQUIRED)
add_library(vdreader_gtest STATIC ${VDREADER_GOOGLETEST}/src/gtest-all.cc)
target_include_directories(vdreader_gtest SYSTEM PUBLIC ${VDREADER_GOOGLETEST}/include)
target_include_directories(vdreader_gtest PRIVATE ${VDREADER_GOOGLETEST})
target_link_libraries(vdreader_gtest PUBLIC Threads::Threads)
add_library(vdreader_gtest_main STATIC ${VDREADER_GOOGLETEST}/src/gtest_main.cc)
target_link_libraries(vdreader_gtest_main PUBLIC vdreader_gtest)
set_target_properties(vdreader_gtest vdreader_gtest_main PROPERTIES EXCLUDE_FROM_ALL TRUE
  EXPORT_COMPILE_COMMANDS OFF)
target_compile_options(vdreader_gtest PRIVATE -O0)

add_library(GTest::gtest ALIAS vdreader_gtest)
add_library(GTest::gtest_main ALIAS vdreader_gtest_main)
