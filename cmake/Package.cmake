# SPDX-License-Identifier: MIT
# Debian packages: `cpack -G DEB` in a build for the prefix /usr, as packaging/deb.sh does it. A package holds the
# static libraries: programs of others keep working when the next version changes the members of a class.

set(PELLMOR_PACKAGER "the Pellmor authors <authors@pellmor.invalid>" CACHE STRING "Who answers for the packages")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME pellmor)
set(CPACK_PACKAGE_CONTACT "${PELLMOR_PACKAGER}")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

string(TIMESTAMP today "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/package/changelog @ONLY CONTENT
"pellmor (@PROJECT_VERSION@) unstable; urgency=medium

  * What is new stands in CHANGELOG.md of the sources.

 -- @PELLMOR_PACKAGER@  @today@
")
add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/package/changelog.gz
  COMMAND gzip -9nkf ${PROJECT_BINARY_DIR}/package/changelog VERBATIM)
add_custom_target(package-changelog ALL DEPENDS ${PROJECT_BINARY_DIR}/package/changelog.gz)

# What `component` is as a package (`text`: behind the project's own line), and the two files that every package has.
macro(pellmor_add_package component name section text)
  string(TOUPPER ${component} key)
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  set(CPACK_DEBIAN_${key}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${key}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${key}_DESCRIPTION "${text}")
  install(FILES ${PROJECT_BINARY_DIR}/package/changelog.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name} COMPONENT ${component} EXCLUDE_FROM_ALL)
  install(FILES ${PROJECT_SOURCE_DIR}/LICENSE RENAME copyright
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name} COMPONENT ${component} EXCLUDE_FROM_ALL)
endmacro()

set(CPACK_COMPONENTS_ALL "")
pellmor_add_package(development libpellmor-dev libdevel
  "The library: it parses the boxes of MP4 files and edits them so that a file\nis always whole. Headers, static libraries, CMake package, pkg-config files.")
if(PELLMOR_BUILD_PROGRAMS)
  pellmor_add_package(programs pellmor video
    "The programs: Pellmor moves SLAM payloads between recordings and side files,\npellmor-edit looks at recordings and edits them. An edit succeeds wholly, or\nleaves the file as it was.")
endif()
if(PELLMOR_BUILD_PYTHON)
  pellmor_add_package(python python3-pellmor python
    "The Python module: it reads and writes SLAM payloads and positions of\nMP4 files, and walks their boxes. An edit succeeds wholly, or leaves the file\nas it was.")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "${PELLMOR_PYTHON_DEPENDS}")
endif()

include(CPack)
