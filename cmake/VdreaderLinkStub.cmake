# What a Linux host links: libvdreader.so, a shared object with the soname of the library in which
# every exported name stands, with its version and without its code.  The host then loads the
# library itself by that soname.
#
# Two things differ from the library.  A name that the C library has as well stands with a hidden
# version, so that the linker leaves the host's calls of it to the C library; by its version it can
# still be linked.  And the stub refuses dlopen, which would otherwise find it under its file name.
set(VDREADER_NAMES_OF_THE_C_LIBRARY error)

# vdreader_link_stub(TARGET VERSION_SCRIPT NAME...): puts the stub in the place of the link that
# stands beside the library under the name that linkers look for, and defines TARGET::TARGET, which
# hosts of the build link just as those of the installed package do.
function(vdreader_link_stub target script)
  set(source "")
  foreach(name IN LISTS ARGN)
    set(symbol ${name})
    if(name IN_LIST VDREADER_NAMES_OF_THE_C_LIBRARY)
      set(symbol stub_of_${name})
      string(APPEND source "__asm__(\".symver ${symbol}, ${name}@VDREADER_1\");\n")
    endif()
    string(APPEND source "void ${symbol}(void) { __builtin_trap(); }\n")
  endforeach()
  set(file ${CMAKE_CURRENT_BINARY_DIR}/stub/${target}_stub.c)
  file(CONFIGURE OUTPUT ${file} CONTENT "${source}" @ONLY)

  # Its options are its own: no sanitizer and no optimiser across files, which would lose the
  # versions, and no library below it.
  add_library(${target}_stub SHARED ${file})
  set_target_properties(${target}_stub PROPERTIES
    OUTPUT_NAME ${target} NO_SONAME ON INTERPROCEDURAL_OPTIMIZATION OFF
    LIBRARY_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/stub
    COMPILE_DEFINITIONS "" COMPILE_OPTIONS "-fvisibility=default;-fno-builtin;-fno-lto"
    LINK_DEPENDS ${script}
    LINK_OPTIONS "-nostdlib;-fno-lto;-Wl,--version-script=${script};-Wl,-z,nodlopen;\
-Wl,-soname,lib${target}.so.${PROJECT_VERSION_MAJOR}")

  set(stub ${CMAKE_CURRENT_BINARY_DIR}/stub/lib${target}.so)
  set(link ${CMAKE_BINARY_DIR}/lib/lib${target}.so)
  add_dependencies(${target} ${target}_stub)
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${stub})
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND ${CMAKE_COMMAND} -E rm -f ${link}
    COMMAND ${CMAKE_COMMAND} -E copy ${stub} ${link} VERBATIM)

  add_library(${target}::${target} SHARED IMPORTED GLOBAL)
  add_dependencies(${target}::${target} ${target})
  set_target_properties(${target}::${target} PROPERTIES
    IMPORTED_LOCATION ${link} IMPORTED_SONAME lib${target}.so.${PROJECT_VERSION_MAJOR}
    INTERFACE_INCLUDE_DIRECTORIES ${PROJECT_SOURCE_DIR}/include)
endfunction()
