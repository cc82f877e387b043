# What an installation holds besides the targets' own files (each target's
# CMakeLists installs its binary): the contract headers, the CMake package,
# the pkg-config file and the documents.
include(CMakePackageConfigHelpers)

install(FILES ${QMX_CONTRACT_HEADERS} DESTINATION ${QMX_INSTALL_INCLUDEDIR})

set(QMX_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/QMXKeyFrame)
install(EXPORT QMXKeyFrameTargets NAMESPACE QMX:: DESTINATION ${QMX_INSTALL_CMAKEDIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/QMXKeyFrameConfig.cmake.in
  ${CMAKE_BINARY_DIR}/QMXKeyFrameConfig.cmake
  INSTALL_DESTINATION ${QMX_INSTALL_CMAKEDIR}
  PATH_VARS QMX_INSTALL_PLUGINDIR)
# 1.x hosts build against any 1.y >= x: the interfaces only grow within a major release.
write_basic_package_version_file(${CMAKE_BINARY_DIR}/QMXKeyFrameConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/QMXKeyFrameConfig.cmake ${CMAKE_BINARY_DIR}/QMXKeyFrameConfigVersion.cmake
  DESTINATION ${QMX_INSTALL_CMAKEDIR})

# The pkg-config file finds its prefix from its own folder, so an unpacked
# or relocated installation works as it is.
set(QMX_INSTALL_PKGCONFIGDIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH QMX_PC_TO_PREFIX /${QMX_INSTALL_PKGCONFIGDIR} /)
string(REGEX REPLACE "/$" "" QMX_PC_TO_PREFIX ${QMX_PC_TO_PREFIX})
configure_file(${CMAKE_CURRENT_LIST_DIR}/qmxkeyframe.pc.in ${CMAKE_BINARY_DIR}/qmxkeyframe.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/qmxkeyframe.pc DESTINATION ${QMX_INSTALL_PKGCONFIGDIR})

install(FILES ${CMAKE_SOURCE_DIR}/README.md ${CMAKE_SOURCE_DIR}/CHANGELOG.md ${CMAKE_SOURCE_DIR}/LICENSE
  DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY ${CMAKE_SOURCE_DIR}/examples/minimal_host DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
