include(CMakePackageConfigHelpers)

install(EXPORT PellmorTargets
  NAMESPACE Pellmor::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Pellmor)

configure_package_config_file(cmake/PellmorConfig.cmake.in ${PROJECT_BINARY_DIR}/PellmorConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Pellmor)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/PellmorConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/PellmorConfig.cmake ${PROJECT_BINARY_DIR}/PellmorConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Pellmor)

# Relative to the file itself, so that it is right under any prefix given at install time.
file(RELATIVE_PATH PELLMOR_PREFIX_FROM_PKGCONFIG
  /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
foreach(name pellmor pellmor-slam)
  configure_file(cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
