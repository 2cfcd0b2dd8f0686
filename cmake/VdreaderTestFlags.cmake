# How the tests' own sources are compiled.  The library that they test keeps its options.

# Precompiled for the tests; each source still includes what it uses.
set(VDREADER_TEST_HEADERS
  <gtest/gtest.h> <algorithm> <atomic> <chrono> <cstring> <filesystem> <fstream> <functional> <map>
  <memory> <mutex> <random> <set> <sstream> <string> <thread> <vector>)

# vdreader_test_flags(TARGET [OWNER]): the precompiled headers, those of OWNER where that is a
# target of the same kind and of no more definitions, and little of what takes the compiler longest:
# optimisation, and what a debugger is told of each variable.  On Windows it is told nothing: Wine's
# debug help library faults on some of what belongs to code compiled with -Og.
function(vdreader_test_flags target)
  target_compile_options(${target} PRIVATE -Og)
  set(debug_info -g1)
  if(WIN32)
    set(debug_info -g0)
  endif()
  set_target_properties(${target} PROPERTIES VDREADER_DEBUG_INFO ${debug_info})
  if(ARGC GREATER 1)
    target_precompile_headers(${target} REUSE_FROM ${ARGV1})
  else()
    target_precompile_headers(${target} PRIVATE ${VDREADER_TEST_HEADERS})
  endif()
endfunction()
