# What leaves the library: vdreader/exports.list, turned into the version script of the Linux linker
# (one version node, everything else local) and the module definition file of the Windows one.  On
# Windows the members of exported classes leave through the attribute on their declaration.
include(VdreaderLinkStub)

function(vdreader_export target list)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${list})
  file(STRINGS ${list} lines REGEX "^[^#]")
  set(script "")
  set(definition "")
  set(names "")
  foreach(line IN LISTS lines)
    if(line MATCHES "^c\\+\\+ ([A-Za-z0-9_]+)( [A-Za-z0-9_]+)?$")
      string(APPEND script "    ${CMAKE_MATCH_1};\n")
      list(APPEND names ${CMAKE_MATCH_1})
    elseif(line MATCHES "^([A-Za-z0-9_]+)$")
      string(APPEND script "    ${line};\n")
      string(APPEND definition "    ${line}\n")
      list(APPEND names ${line})
    else()
      message(FATAL_ERROR "${list}: not a name: ${line}")
    endif()
  endforeach()

  if(WIN32)
    set(file ${CMAKE_CURRENT_BINARY_DIR}/vdreader.def)
    file(CONFIGURE OUTPUT ${file} CONTENT "LIBRARY vdreader.dll\nEXPORTS\n${definition}" @ONLY)
    target_link_options(${target} PRIVATE ${file})
    vdreader_msvc_import_library(${target} ${file})
  else()
    set(file ${CMAKE_CURRENT_BINARY_DIR}/vdreader.map)
    file(CONFIGURE OUTPUT ${file}
      CONTENT "VDREADER_1 {\n  global:\n${script}  local:\n    *;\n};\n" @ONLY)
    target_link_options(${target} PRIVATE
      -Wl,--version-script=${file} -Wl,-Bsymbolic-functions)
    if(NOT VDREADER_SANITIZE)
      target_link_options(${target} PRIVATE -Wl,--no-undefined)
    endif()
    vdreader_link_stub(${target} ${file} ${names})
  endif()
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${file})
endfunction()

# An import library under the name that compilers other than GCC look for: the C names alone, since
# those compilers mangle the others in their own way.
function(vdreader_msvc_import_library target definition)
  set(library ${CMAKE_BINARY_DIR}/lib/vdreader.lib)
  add_custom_command(OUTPUT ${library}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/lib
    COMMAND ${CMAKE_DLLTOOL} -m i386:x86-64 -d ${definition} -D vdreader.dll -l ${library}
    DEPENDS ${definition} VERBATIM)
  add_custom_target(${target}_msvc_import_library ALL DEPENDS ${library})
  add_dependencies(${target} ${target}_msvc_import_library)
endfunction()
