# Makes the cases of a GoogleTest program known to ctest.
#
#   vdreader_discover_cases(TARGET TIMEOUT SECONDS PROPERTIES NAME VALUE...)
#   vdreader_discover_suites(TARGET [ALONE SUITE...] TIMEOUT SECONDS PROPERTIES NAME VALUE...)
#
# The first makes each case a test of its own.  The second makes one of each suite: a process for
# all of its cases, which saves the time that a process takes to start where that is long.  The
# cases of the suites behind ALONE get a process each all the same, for SECONDS at most; a suite may
# take twice as long.  The program is asked for what it has when the tests run, once for each time
# that it was linked.

if(COMMAND add_library)
  include(GoogleTest)

  # CMake's own gives a program five seconds and one try, too little for a first start under Wine.
  function(vdreader_discover_cases target)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "TIMEOUT" "PROPERTIES")
    if(CMAKE_CROSSCOMPILING_EMULATOR)
      vdreader_discover_suites(${target} ALONE .* ${ARGN})
    else()
      gtest_discover_tests(${target} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 180
        PROPERTIES TIMEOUT ${arg_TIMEOUT} ${arg_PROPERTIES})
    endif()
  endfunction()

  function(vdreader_discover_suites target)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "TIMEOUT" "ALONE;PROPERTIES")
    list(JOIN arg_ALONE | alone)
    set(include ${CMAKE_CURRENT_BINARY_DIR}/${target}_suites.cmake)
    file(GENERATE OUTPUT ${include} CONTENT
      "set(settings [==[${include}]==])
set(program [==[$<TARGET_FILE:${target}>]==])
set(emulator [==[${CMAKE_CROSSCOMPILING_EMULATOR}]==])
set(folder [==[${CMAKE_CURRENT_BINARY_DIR}]==])
set(found [==[${CMAKE_CURRENT_BINARY_DIR}/${target}_found.cmake]==])
set(alone [==[^(${alone})$]==])
set(timeout ${arg_TIMEOUT})
set(properties [==[${arg_PROPERTIES}]==])
include([==[${PROJECT_SOURCE_DIR}/cmake/VdreaderTestSuites.cmake]==])
")
    set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${include})
  endfunction()
  return()
endif()

# From here on: read by ctest, with the variables that are set above.
cmake_minimum_required(VERSION 3.25)

# vdreader_note_test(NAME FILTER SECONDS [PROPERTY VALUE...])
function(vdreader_note_test name filter seconds)
  set(words ${emulator} ${program} --gtest_filter=${filter})
  string(REPLACE ";" "]==] [==[" words "${words}")
  set(values WORKING_DIRECTORY ${folder} TIMEOUT ${seconds} ${ARGN} ${properties})
  string(REPLACE ";" "]==] [==[" values "${values}")
  file(APPEND ${found} "add_test([==[${name}]==] [==[${words}]==])\n"
    "set_tests_properties([==[${name}]==] PROPERTIES [==[${values}]==])\n")
endfunction()

# What the program prints of its cases.  A start under Wine has been seen to fail and to succeed a
# moment later.
function(vdreader_list_cases result)
  foreach(try RANGE 1 3)
    execute_process(COMMAND ${emulator} ${program} --gtest_list_tests TIMEOUT 180
      RESULT_VARIABLE code OUTPUT_VARIABLE listed)
    if(code EQUAL 0)
      set(${result} "${listed}" PARENT_SCOPE)
      return()
    endif()
    message("${program}: its cases cannot be listed (${code}), try ${try}\n${listed}")
  endforeach()
  message(FATAL_ERROR "${program}: no list of its cases")
endfunction()

if(NOT EXISTS ${found} OR ${program} IS_NEWER_THAN ${found} OR ${settings} IS_NEWER_THAN ${found})
  vdreader_list_cases(listed)
  string(REGEX REPLACE "\r?\n" ";" listed "${listed}")
  file(WRITE ${found} "")
  foreach(line IN LISTS listed)
    string(REGEX REPLACE " *#.*" "" name "${line}")
    if(line MATCHES "^ ")
      string(STRIP "${name}" name)
      if(suite MATCHES "${alone}" AND NOT name MATCHES "^DISABLED_")
        vdreader_note_test(${suite}.${name} ${suite}.${name} ${timeout}
          SKIP_REGULAR_EXPRESSION "\\[  SKIPPED \\]")
      endif()
    elseif(name MATCHES "\\.$")
      string(REGEX REPLACE "\\.$" "" suite "${name}")
      if(NOT suite MATCHES "${alone}")
        math(EXPR longer "2 * ${timeout}")
        vdreader_note_test(${suite} ${suite}.* ${longer})
      endif()
    endif()
  endforeach()
endif()
include(${found})
