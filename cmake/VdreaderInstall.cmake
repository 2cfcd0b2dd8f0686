# What is installed: the library, the public headers, and what CMake and pkg-config projects need to
# find both.  The tree may be moved: nothing in it names the folder it was installed to.
include(CMakePackageConfigHelpers)

set(VDREADER_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/vdreader)

install(TARGETS vdreader EXPORT vdreaderTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_SKIP
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/vdreader
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN *.h PATTERN *.hpp)
if(WIN32)
  install(FILES ${CMAKE_BINARY_DIR}/lib/vdreader.lib DESTINATION ${CMAKE_INSTALL_LIBDIR})
else()
  # The stub for linkers.  Former versions installed a symbolic link under its name; the copy must
  # not go through that into the library.
  install(CODE "
    set(link \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/libvdreader.so\")
    if(IS_SYMLINK \"\${link}\")
      file(REMOVE \"\${link}\")
    endif()")
  install(FILES ${CMAKE_BINARY_DIR}/lib/libvdreader.so DESTINATION ${CMAKE_INSTALL_LIBDIR}
    PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endif()

install(EXPORT vdreaderTargets NAMESPACE vdreader:: DESTINATION ${VDREADER_PACKAGE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/vdreaderConfig.cmake.in
  ${CMAKE_BINARY_DIR}/package/vdreaderConfig.cmake INSTALL_DESTINATION ${VDREADER_PACKAGE_DIR})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/package/vdreaderConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/package/vdreaderConfig.cmake
  ${CMAKE_BINARY_DIR}/package/vdreaderConfigVersion.cmake DESTINATION ${VDREADER_PACKAGE_DIR})

file(RELATIVE_PATH VDREADER_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(${PROJECT_SOURCE_DIR}/cmake/vdreader.pc.in
  ${CMAKE_BINARY_DIR}/package/vdreader.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/package/vdreader.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
