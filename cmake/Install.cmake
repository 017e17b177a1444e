# What is installed, and how others find it: CMake package VelmarSpamreport, pkg-config velmar-spamreport.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/VelmarSpamreport)
set(targets spamreport_lib)
if(VELMAR_PLATFORM STREQUAL "host")
  list(APPEND targets velmarhost)
  set(VELMAR_PC_PLATFORM_LIBS "-lvelmarhost")
  install(TARGETS spamreport RUNTIME)
  install(DIRECTORY ${VELMAR_SHARE}/templates share/images share/demo DESTINATION ${CMAKE_INSTALL_DATADIR}/velmar)
  install(FILES share/etc/host.toml share/etc/host.toml.sample DESTINATION ${CMAKE_INSTALL_DATADIR}/velmar/etc)
  install(DIRECTORY share/examples DESTINATION ${CMAKE_INSTALL_DATADIR}/velmar USE_SOURCE_PERMISSIONS)
  install(FILES share/bash-completion/spamreport DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES docs/man/spamreport.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES docs/man/velmar-host.toml.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5)
  include(SystemdUnits)
  # The command finds the libraries beside it wherever the tree is put.
  file(RELATIVE_PATH libdir_from_bindir ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(spamreport PROPERTIES INSTALL_RPATH "$ORIGIN/${libdir_from_bindir}")
  set_target_properties(spamreport_lib PROPERTIES INSTALL_RPATH "$ORIGIN")
endif()

install(TARGETS ${targets} EXPORT VelmarSpamreportTargets LIBRARY)
install(FILES include/velmar/spamreport.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/velmar-spamreport/velmar)
install(DIRECTORY platform/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/velmar-spamreport/platform FILES_MATCHING PATTERN "*.h")
install(FILES docs/man/libspamreport.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3)
install(EXPORT VelmarSpamreportTargets NAMESPACE Velmar:: DESTINATION ${package_dir})

configure_package_config_file(cmake/VelmarSpamreportConfig.cmake.in ${PROJECT_BINARY_DIR}/VelmarSpamreportConfig.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VelmarSpamreportConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VelmarSpamreportConfig.cmake ${PROJECT_BINARY_DIR}/VelmarSpamreportConfigVersion.cmake
        DESTINATION ${package_dir})
# Relative, so that the installed tree may be moved.
file(RELATIVE_PATH VELMAR_PREFIX_FROM_PC ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/velmar-spamreport.pc.in ${PROJECT_BINARY_DIR}/velmar-spamreport.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/velmar-spamreport.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
