# SPDX-License-Identifier: Apache-2.0
# Installation of the library, and the files with which other projects find it.
include(CMakePackageConfigHelpers)

# The library looks for its rules file in its own directory, installed or not.
configure_file(${PROJECT_SOURCE_DIR}/config/brindle.config.json
               ${PROJECT_BINARY_DIR}/brindle.config.json COPYONLY)

install(TARGETS quorvane EXPORT QuorvaneTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
configure_file(cmake/install_rules.cmake.in
               ${PROJECT_BINARY_DIR}/install_rules.cmake @ONLY)
install(SCRIPT ${PROJECT_BINARY_DIR}/install_rules.cmake)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Quorvane)
install(EXPORT QuorvaneTargets NAMESPACE Quorvane:: DESTINATION ${package_dir})
configure_package_config_file(cmake/QuorvaneConfig.cmake.in
  ${PROJECT_BINARY_DIR}/QuorvaneConfig.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/QuorvaneConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/QuorvaneConfig.cmake
              ${PROJECT_BINARY_DIR}/QuorvaneConfigVersion.cmake
        DESTINATION ${package_dir})

# Relative paths, so that --prefix works: pkg-config sets ${pcfiledir} to the
# directory of the file.
file(RELATIVE_PATH pc_to_prefix
     ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/quorvane.pc.in ${PROJECT_BINARY_DIR}/quorvane.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/quorvane.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
