# Installs what belongs to no single target: the CMake package, with which find_package(quintral)
# provides quintral::support, quintral::cmdline, quintral::web and quintral::platform; the manual,
# the completions and the documents.
#
# All install rules belong to one of three components. runtime is what a program that was linked to
# the shared libraries needs, development what it takes to compile and link one, tool the utility
# with the documents and the license.
include(CMakePackageConfigHelpers)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/quintral)
write_basic_package_version_file(
  ${CMAKE_CURRENT_BINARY_DIR}/quintral-config-version.cmake COMPATIBILITY SameMajorVersion)
install(EXPORT quintral-targets NAMESPACE quintral:: DESTINATION ${package_folder}
  FILE quintral-config.cmake COMPONENT development)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/quintral-config-version.cmake
  DESTINATION ${package_folder} COMPONENT development)

set(library_pages ${QUINTRAL_MANUAL_PAGES})
list(FILTER library_pages INCLUDE REGEX "[.]3$")
install(FILES ${library_pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT development)

if(QUINTRAL_BUILD_TOOL)
  set(utility_pages ${QUINTRAL_MANUAL_PAGES})
  list(FILTER utility_pages INCLUDE REGEX "[.]1$")
  install(FILES ${utility_pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tool)
  set(share ${CMAKE_INSTALL_DATAROOTDIR})
  install(FILES completions/quintral.bash RENAME quintral
    DESTINATION ${share}/bash-completion/completions COMPONENT tool)
  install(FILES completions/_quintral DESTINATION ${share}/zsh/site-functions COMPONENT tool)
  install(FILES completions/quintral.fish
    DESTINATION ${share}/fish/vendor_completions.d COMPONENT tool)
endif()

# In a folder of their own as in the sources, because README.md refers to them there.
install(FILES README.md CHANGELOG.md SECURITY.md LICENSE
  DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT tool)
install(FILES
    docs/building.md docs/diagnostics.md docs/performance.md docs/protocol.md docs/quintral.md
    docs/servers-and-proxies.md docs/strings-dates-clocks.md
    docs/performance-check.svg docs/performance-growth.svg docs/performance-ratios.svg
    docs/outcome.schema.json
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs COMPONENT tool)
