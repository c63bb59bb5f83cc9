include(CMakePackageConfigHelpers)

set(tavrel_targets tavrel)
if(TAVREL_PLATFORM STREQUAL "bundled")
  list(APPEND tavrel_targets qzplatform)
  install(DIRECTORY platform/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  # A program need not link libqzplatform itself, so the library finds it where both are installed.
  set_property(TARGET tavrel PROPERTY INSTALL_RPATH "$ORIGIN")
endif()
install(TARGETS ${tavrel_targets} EXPORT tavrelTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT tavrelTargets NAMESPACE tavrel:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tavrel)

configure_package_config_file(cmake/tavrelConfig.cmake.in ${CMAKE_CURRENT_BINARY_DIR}/tavrelConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tavrel)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/tavrelConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tavrelConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/tavrelConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tavrel)

# A static build hands its own dependencies on to whoever links it; a firmware's own platform has a name of its own.
set(TAVREL_PC_LIBS "-ltavrel")
if(TAVREL_PLATFORM STREQUAL "bundled")
  string(APPEND TAVREL_PC_LIBS " -lqzplatform")
endif()
# From where the file lies, so that the package can be installed anywhere.
file(RELATIVE_PATH TAVREL_PC_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/tavrel.pc.in ${CMAKE_CURRENT_BINARY_DIR}/tavrel.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tavrel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
