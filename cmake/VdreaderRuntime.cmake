# The run-time libraries that the Windows binaries share, since exceptions and containers cross the
# boundary: put beside the programs of the build and installed with them.
if(NOT WIN32)
  return()
endif()
foreach(name libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${name}
    OUTPUT_VARIABLE file OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  if(NOT EXISTS ${file})
    message(FATAL_ERROR "The compiler's run-time library ${name} is missing")
  endif()
  file(MAKE_DIRECTORY ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
  file(COPY_FILE ${file} ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${name} ONLY_IF_DIFFERENT)
  install(FILES ${file} DESTINATION ${CMAKE_INSTALL_BINDIR})
endforeach()
