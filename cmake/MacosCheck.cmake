# Toolchain file that builds the project for macOS on a machine without macOS, for
# scripts/check-macos.sh: clang compiles, and the programs are linked with stubs of the frameworks.
# The linker cannot write programs for 32-bit Intel; there they are empty files. Nothing is run.
#
# Set by the presets:
#   QUINTRAL_MACOS_TARGET       clang's target, architecture and first system, as
#                               i386-apple-macosx10.6
#   QUINTRAL_MACOS_TOOLCHAIN    folder of the C library's headers of all architectures and of the
#                               linker
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES QUINTRAL_MACOS_TARGET QUINTRAL_MACOS_TOOLCHAIN)

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_CXX_COMPILER_TARGET ${QUINTRAL_MACOS_TARGET})
string(REGEX REPLACE ".*macosx" "" first_system ${QUINTRAL_MACOS_TARGET})
set(CMAKE_OSX_DEPLOYMENT_TARGET ${first_system} CACHE STRING "First system to run on" FORCE)
set(CMAKE_OSX_SYSROOT "" CACHE STRING "There is none" FORCE)

set(CMAKE_CXX_COMPILER_WORKS TRUE)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
set(CMAKE_INSTALL_NAME_TOOL true) # looked for, never run

# The linker brings its own libc++ and the list of what the C library of macOS 11 exports. That is
# the oldest system it knows. It compiles libc++ once for each architecture; its cache keeps that.
if(QUINTRAL_MACOS_TARGET MATCHES "^i386")
  set(CMAKE_CXX_LINK_EXECUTABLE "<CMAKE_COMMAND> -E touch <TARGET>")
else()
  string(REGEX MATCH "^[^-]*" architecture ${QUINTRAL_MACOS_TARGET})
  string(REPLACE arm64 aarch64 architecture ${architecture})
  set(cache ${CMAKE_CURRENT_LIST_DIR}/../build/macos-toolchain/cache)
  cmake_path(NORMAL_PATH cache)
  cmake_path(SET stubs NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../tests/macos-frameworks/link)
  string(JOIN " " CMAKE_CXX_LINK_EXECUTABLE
    "<CMAKE_COMMAND> -E env ZIG_GLOBAL_CACHE_DIR=${cache} ZIG_LOCAL_CACHE_DIR=${cache}"
    "${QUINTRAL_MACOS_TOOLCHAIN}/zig c++ -target ${architecture}-macos.11.0"
    "<OBJECTS> -o <TARGET> <LINK_LIBRARIES> -F ${stubs}")
endif()

# The C++ headers are those of clang's own libc++; its C headers come between them and the
# system's, which are those of macOS 11, the oldest here.
execute_process(COMMAND clang++ -print-resource-dir
  OUTPUT_VARIABLE clang_folder OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
cmake_path(SET cxx_headers NORMALIZE ${clang_folder}/../../../include/c++/v1)

if(QUINTRAL_MACOS_TARGET MATCHES "^arm64")
  set(architecture_headers aarch64-macos.11-none)
else()
  set(architecture_headers x86_64-macos.11-none) # of 32-bit Intel too
endif()
set(c_headers ${QUINTRAL_MACOS_TOOLCHAIN}/lib/libc/include)
set(include_folders
  ${cxx_headers}
  ${clang_folder}/include
  ${c_headers}/${architecture_headers}
  ${c_headers}/any-macos.11-any
  ${c_headers}/any-macos-any
  ${CMAKE_CURRENT_LIST_DIR}/../tests/macos-frameworks)
set(CMAKE_CXX_FLAGS_INIT "-nostdinc -nostdinc++ -Werror=unguarded-availability")
if(first_system VERSION_LESS 10.7)
  string(APPEND CMAKE_CXX_FLAGS_INIT
    " -include ${CMAKE_CURRENT_LIST_DIR}/../tests/macos-frameworks/before-10.7.h")
endif()
foreach(folder ${include_folders})
  if(NOT IS_DIRECTORY ${folder})
    message(FATAL_ERROR "No folder ${folder}; scripts/check-macos.sh installs what is needed")
  endif()
  string(APPEND CMAKE_CXX_FLAGS_INIT " -isystem ${folder}")
endforeach()
