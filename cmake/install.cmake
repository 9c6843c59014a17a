# Puts libraries, headers, the CMake package, pkg-config files, the program and its manual page under
# the prefix.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/skgfr)

if(VDPREP_SHARED)
  install(TARGETS sysl_shared skgfr_shared EXPORT skgfr-targets)
endif()
set_target_properties(sysl PROPERTIES EXPORT_NAME sysl_static)
set_target_properties(skgfr PROPERTIES EXPORT_NAME skgfr_static)
install(TARGETS sysl skgfr EXPORT skgfr-targets)
install(TARGETS vdprep)
install(FILES sysl/sysl.h sysl/types.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/sysl)
install(FILES skgfr/skgfr.h skgfr/asynchronous.h skgfr/discovery.h skgfr/records.h skgfr/client.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/skgfr)
install(FILES man/vdprep.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
install(FILES man/skgfr.7 DESTINATION ${CMAKE_INSTALL_MANDIR}/man7)
install(FILES completions/vdprep.bash RENAME vdprep
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)

if(VDPREP_ADMIN)
  install(TARGETS vdadm DESTINATION ${CMAKE_INSTALL_SBINDIR})
  configure_file(admin/64-vdadm.rules.in 64-vdadm.rules @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/64-vdadm.rules DESTINATION lib/udev/rules.d)
  install(FILES man/vdadm.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
  install(FILES completions/vdadm.bash RENAME vdadm
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
endif()

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

add_custom_target(uninstall COMMENT "Removing what was installed"
  COMMAND ${CMAKE_COMMAND} -D CMAKE_BINARY_DIR=${PROJECT_BINARY_DIR} -P ${PROJECT_SOURCE_DIR}/cmake/uninstall.cmake)
