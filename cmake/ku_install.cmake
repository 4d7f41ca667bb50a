# Install and uninstall: libraries, headers, message files, kuq, pkg-config and CMake packages.

include(CMakePackageConfigHelpers)

install(TARGETS ku EXPORT kuTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS kucom LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS ku_static ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${ku_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ku)
install(DIRECTORY msg/ DESTINATION ${CMAKE_INSTALL_DATADIR}/ku FILES_MATCHING PATTERN "*.msg")

install(EXPORT kuTargets NAMESPACE ku:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ku)
configure_package_config_file(cmake/kuConfig.cmake.in ${CMAKE_BINARY_DIR}/kuConfig.cmake
                              INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ku)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/kuConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/kuConfig.cmake ${CMAKE_BINARY_DIR}/kuConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ku)

configure_file(cmake/ku.pc.in ${CMAKE_BINARY_DIR}/ku.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/ku.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

configure_file(cmake/ku_uninstall.cmake.in ${CMAKE_BINARY_DIR}/ku_uninstall.cmake @ONLY)
add_custom_target(uninstall COMMAND ${CMAKE_COMMAND} -P ${CMAKE_BINARY_DIR}/ku_uninstall.cmake
                  COMMENT "Removing what install put in place")
