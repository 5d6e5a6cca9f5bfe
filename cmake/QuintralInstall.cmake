# Installs the CMake package: find_package(quintral) provides quintral::support, quintral::cmdline,
# quintral::web and quintral::platform.
include(CMakePackageConfigHelpers)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/quintral)
write_basic_package_version_file(
  ${CMAKE_CURRENT_BINARY_DIR}/quintral-config-version.cmake COMPATIBILITY SameMajorVersion)
install(EXPORT quintral-targets NAMESPACE quintral:: DESTINATION ${package_folder}
  FILE quintral-config.cmake)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/quintral-config-version.cmake
  DESTINATION ${package_folder})
