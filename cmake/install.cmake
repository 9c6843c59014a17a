# Puts libraries, headers, the CMake package, pkg-config files, the program and its manual page under
# the prefix.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/skgfr)

install(TARGETS sysl skgfr EXPORT skgfr-targets)
install(TARGETS vdprep)
install(FILES sysl/sysl.h sysl/types.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/sysl)
install(FILES skgfr/skgfr.h skgfr/asynchronous.h skgfr/discovery.h skgfr/records.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/skgfr)
install(FILES man/vdprep.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
install(FILES man/skgfr.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3)
install(FILES completions/vdprep.bash RENAME vdprep
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)

install(EXPORT skgfr-targets NAMESPACE skgfr:: DESTINATION ${package_dir})
configure_package_config_file(cmake/skgfr-config.cmake.in skgfr-config.cmake
  INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(skgfr-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/skgfr-config.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/skgfr-config-version.cmake DESTINATION ${package_dir})

# The files find their own prefix, so that an installation can be moved.
file(RELATIVE_PATH PREFIX_FROM_PKGCONFIG /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" PREFIX_FROM_PKGCONFIG "${PREFIX_FROM_PKGCONFIG}")
foreach(library sysl skgfr)
  configure_file(cmake/${library}.pc.in ${library}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${library}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
