# vdreader_layer(NAME SOURCES ... INCLUDES ... USES ...)
#
# One layer of the library: an object library vdr_NAME that sees the public headers, its own include
# folders and those of the layers that it uses, and nothing else.  For each layer a shared object of
# the layer and everything below it is linked without undefined symbols, so that a reference to a
# higher layer stops the build.
set(VDREADER_LAYERS "" CACHE INTERNAL "")

function(vdreader_layer name)
  cmake_parse_arguments(ARG "" "" "SOURCES;INCLUDES;USES;LIBRARIES" ${ARGN})
  add_library(vdr_${name} OBJECT ${ARG_SOURCES})
  target_include_directories(vdr_${name} PUBLIC ${PROJECT_SOURCE_DIR}/include ${ARG_INCLUDES})
  target_compile_definitions(vdr_${name} PRIVATE VDREADER_BUILDING)
  target_link_libraries(vdr_${name} PRIVATE vdreader_flags PUBLIC ${ARG_LIBRARIES})
  foreach(used IN LISTS ARG_USES)
    target_link_libraries(vdr_${name} PUBLIC vdr_${used})
  endforeach()

  set(layers ${VDREADER_LAYERS} ${name})
  set(VDREADER_LAYERS ${layers} CACHE INTERNAL "")
endfunction()

# vdreader_link_layers(TARGET [LAST]): links the objects of all layers, or of those up to LAST.
function(vdreader_link_layers target)
  foreach(layer IN LISTS VDREADER_LAYERS)
    target_link_libraries(${target} PRIVATE vdr_${layer})
    if(layer STREQUAL "${ARGV1}")
      break()
    endif()
  endforeach()
endfunction()

# One link check for each layer, part of the default build of the tests.
function(vdreader_check_layers)
  foreach(layer IN LISTS VDREADER_LAYERS)
    add_library(layer_check_${layer} SHARED ${PROJECT_SOURCE_DIR}/cmake/empty.cpp)
    vdreader_link_layers(layer_check_${layer} ${layer})
    set_target_properties(layer_check_${layer} PROPERTIES
      RUNTIME_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/layers
      LIBRARY_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/layers
      ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/layers)
    if(NOT VDREADER_SANITIZE)
      target_link_options(layer_check_${layer} PRIVATE -Wl,--no-undefined)
    endif()
  endforeach()
endfunction()
