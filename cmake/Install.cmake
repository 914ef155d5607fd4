# SPDX-License-Identifier: MIT
include(CMakePackageConfigHelpers)

install(EXPORT PellmorTargets
  NAMESPACE Pellmor::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Pellmor COMPONENT development)

configure_package_config_file(cmake/PellmorConfig.cmake.in ${PROJECT_BINARY_DIR}/PellmorConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Pellmor)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/PellmorConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/PellmorConfig.cmake ${PROJECT_BINARY_DIR}/PellmorConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Pellmor COMPONENT development)

# Relative to the file itself, so that it is right under any prefix given at install time.
file(RELATIVE_PATH PELLMOR_PREFIX_FROM_PKGCONFIG
  /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
foreach(name pellmor pellmor-slam)
  configure_file(cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endforeach()

if(PELLMOR_BUILD_PROGRAMS)
  include(cmake/Manuals.cmake)
endif()
if(PROJECT_IS_TOP_LEVEL AND NOT BUILD_SHARED_LIBS)
  include(cmake/Package.cmake)
endif()
