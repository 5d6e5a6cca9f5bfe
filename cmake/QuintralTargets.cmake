# What all targets of the project have in common.

# x87 arithmetic rounds to more digits than a float has. Every Intel Mac has SSE, so use that.
include(CheckCXXSourceCompiles)
check_cxx_source_compiles("
  #include <cfloat>
  static_assert(FLT_EVAL_METHOD == 0, \"floats are rounded late\");
  int main() {}" QUINTRAL_FLOATS_ARE_ROUNDED)
set(arithmetic_options -ffp-contract=off)
if(NOT QUINTRAL_FLOATS_ARE_ROUNDED)
  list(APPEND arithmetic_options -msse2 -mfpmath=sse)
endif()

# How an installed program or library names its own folder, to find the shared libraries.
if(APPLE)
  set(quintral_own_folder "@loader_path")
else()
  set(quintral_own_folder "$ORIGIN")
endif()

# Language standard, include path, arithmetic and warnings. The project's own sources include from
# the repository's root; nobody else gets that folder. Fused multiply-adds are off so that 32-bit
# and 64-bit builds round the same way. Warnings are errors in the presets only
# (CMAKE_COMPILE_WARNING_AS_ERROR), never in a project that embeds this one.
function(quintral_common_options target)
  target_compile_features(${target} PUBLIC cxx_std_17)
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR})
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF)
  target_compile_options(${target} PRIVATE
    ${arithmetic_options} -Wall -Wextra -Wshadow -Wconversion)
endfunction()

# quintral_install_pkg_config(folder)
#
# Installs quintral-<folder>.pc for the library, with the arguments of quintral_add_library. Its
# folders are relative to its own, so that the installed files can be moved.
function(quintral_install_pkg_config folder)
  set(pkg_config_folder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
  if(IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR})
    set(prefix ${CMAKE_INSTALL_PREFIX})
  else()
    file(RELATIVE_PATH way_up /prefix/${pkg_config_folder} /prefix)
    set(prefix "\${pcfiledir}/${way_up}")
    string(REGEX REPLACE "/$" "" prefix "${prefix}")
  endif()
  foreach(kind lib include)
    string(TOUPPER CMAKE_INSTALL_${kind}DIR setting)
    set(${kind}dir ${${setting}})
    if(NOT IS_ABSOLUTE ${${kind}dir})
      string(PREPEND ${kind}dir "\${prefix}/")
    endif()
  endforeach()
  # The versions of all libraries are the same, because they share records.
  list(TRANSFORM arg_LINKS REPLACE "^quintral::(.*)" "quintral-\\1 = ${PROJECT_VERSION}"
    OUTPUT_VARIABLE requires)
  list(JOIN requires ", " requires)
  list(JOIN frameworks " " frameworks)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/quintral.pc.in quintral-${folder}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/quintral-${folder}.pc
    DESTINATION ${pkg_config_folder} COMPONENT development)
endfunction()

# quintral_add_public_headers(folder headers...)
#
# Lets all users of the library include its public headers as <quintral/folder/...>: installed ones
# from the include folder; projects that embed this one from a folder of the build, which holds one
# forwarding header for each and nothing else.
function(quintral_add_public_headers folder)
  set(forwarding_folder ${PROJECT_BINARY_DIR}/include)
  target_include_directories(quintral_${folder} INTERFACE
    $<BUILD_INTERFACE:${forwarding_folder}>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  foreach(header ${ARGN})
    set(name quintral/${folder}/${header})
    file(CONFIGURE OUTPUT ${forwarding_folder}/${name} @ONLY
      CONTENT "#include \"@CMAKE_CURRENT_SOURCE_DIR@/@header@\"\n")
    if(QUINTRAL_INSTALL)
      cmake_path(GET name PARENT_PATH header_folder)
      install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${header_folder}
        COMPONENT development)
    endif()
  endforeach()
endfunction()

# quintral_verify_headers(folder headers...)
#
# Lets the target all_verify_interface_header_sets compile each of the library's headers alone. The
# set of headers belongs to a target of its own, because it brings its users the repository's root.
function(quintral_verify_headers folder)
  set(target quintral_${folder}_headers)
  add_library(${target} INTERFACE)
  target_sources(${target} INTERFACE
    FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${ARGN})
  target_link_libraries(${target} INTERFACE quintral_${folder})
  set_target_properties(${target} PROPERTIES VERIFY_INTERFACE_HEADER_SETS ON)
endfunction()

# quintral_limit_exports(target)
#
# Lets a shared library export no more than the public headers declare.
function(quintral_limit_exports target)
  set_target_properties(${target} PROPERTIES
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  if(LINUX)
    set(names ${PROJECT_SOURCE_DIR}/cmake/exports-linux.map)
    target_link_options(${target} PRIVATE LINKER:--version-script=${names})
    set_target_properties(${target} PROPERTIES LINK_DEPENDS ${names})
  endif()
endfunction()

# quintral_add_library(folder DESCRIPTION text SOURCES ... HEADERS ... PRIVATE_HEADERS ... LINKS ...
#                      FRAMEWORKS ...)
#
# The library of one folder: target quintral_<folder>, alias and exported name quintral::<folder>.
# HEADERS are the public ones. LINKS are other libraries of the project, FRAMEWORKS those of macOS.
function(quintral_add_library folder)
  cmake_parse_arguments(PARSE_ARGV 1 arg
    "" "DESCRIPTION" "SOURCES;HEADERS;PRIVATE_HEADERS;LINKS;FRAMEWORKS")
  set(target quintral_${folder})
  add_library(${target} ${arg_SOURCES})
  add_library(quintral::${folder} ALIAS ${target})
  quintral_common_options(${target})
  set_target_properties(${target} PROPERTIES
    EXPORT_NAME ${folder}
    POSITION_INDEPENDENT_CODE ON)
  if(BUILD_SHARED_LIBS)
    set_target_properties(${target} PROPERTIES
      VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
      INSTALL_RPATH ${quintral_own_folder})
    quintral_limit_exports(${target})
  endif()
  quintral_add_public_headers(${folder} ${arg_HEADERS})
  # Without these, 32-bit Linux cannot examine files of 2 GiB and more or dated after 2038. They are
  # public because time_t is part of the interfaces. Other systems ignore them.
  target_compile_definitions(${target} PUBLIC _FILE_OFFSET_BITS=64 _TIME_BITS=64)
  list(TRANSFORM arg_FRAMEWORKS PREPEND "-framework " OUTPUT_VARIABLE frameworks)
  target_link_libraries(${target} PUBLIC ${arg_LINKS} PRIVATE ${frameworks})
  if(QUINTRAL_INSTALL)
    install(TARGETS ${target} EXPORT quintral-targets
      LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
      ARCHIVE COMPONENT development)
    quintral_install_pkg_config(${folder})
  endif()
  if(PROJECT_IS_TOP_LEVEL)
    quintral_verify_headers(${folder} ${arg_HEADERS} ${arg_PRIVATE_HEADERS})
  endif()
endfunction()
