# Builds and runs the consumer in consumer/ as a user would, and checks what the user gets.
#
# Given: WORK_FOLDER, GENERATOR, SETTINGS (arguments of every configure step), COMPILER and
# COMPILER_FLAGS, NM (empty if symbols/ is for another compiler), and
#   WAY       installed (find_package), embedded (add_subdirectory) or fetched (FetchContent)
#   LINKAGE   STATIC or SHARED
#   STANDARD  17 or 20
cmake_minimum_required(VERSION 3.25)
file(REAL_PATH ${CMAKE_CURRENT_LIST_DIR}/../.. project_folder)
set(prefix ${WORK_FOLDER}/prefix)
set(public_headers
  cmdline/long-options.h
  platform/file-ref-linux.h platform/file-ref.h platform/platform.h
  support/c-utils.h support/c-utils/files.h support/c-utils/memory.h support/c-utils/transforms.h
  support/clocks.h support/dates.h support/error.h support/format-attribute.h
  web/base64.h web/form-body.h web/proxy-settings.h web/transaction.h web/update-check.h
  web/version-update.h)

# Sets `output` to what the command writes on standard output.
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output
    ERROR_VARIABLE error)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${ARGN}\ngave ${result}:\n${output}${error}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

# Configures with the remaining arguments, builds and installs.
function(build source_folder build_folder)
  run(${CMAKE_COMMAND} -S ${source_folder} -B ${build_folder} -G ${GENERATOR} ${SETTINGS}
    -DCMAKE_INSTALL_PREFIX=${prefix} ${ARGN})
  run(${CMAKE_COMMAND} --build ${build_folder} --parallel 2)
  run(${CMAKE_COMMAND} --install ${build_folder})
endfunction()

# Expects the files in the folder, written with 1.x for the version of a library and with TYPE for
# the type of the build.
function(expect_files folder)
  file(GLOB_RECURSE files RELATIVE ${folder} ${folder}/*)
  list(TRANSFORM files REPLACE "[.]so[.]1[.][0-9.]+$" ".so.1.x")
  list(TRANSFORM files REPLACE "quintral-config-(debug|release)" "quintral-config-TYPE")
  if(NOT files STREQUAL ARGN)
    message(FATAL_ERROR "${folder} holds ${files}\ninstead of ${ARGN}")
  endif()
endfunction()

# Expects the folder of forwarding headers as the only one of the consumer's include path, and the
# public headers as its only files.
function(expect_forwarding_folder)
  file(READ ${WORK_FOLDER}/consumer/quintral-build-folder folder)
  file(READ ${WORK_FOLDER}/consumer/compile_commands.json commands)
  string(REGEX MATCHALL "-(I|isystem|iquote|idirafter) *[^ ]+" folders "${commands}")
  list(REMOVE_DUPLICATES folders)
  if(NOT folders STREQUAL "-I${folder}/include")
    message(FATAL_ERROR "the include path is ${folders}, not just -I${folder}/include")
  endif()
  list(TRANSFORM public_headers PREPEND quintral/ OUTPUT_VARIABLE headers)
  expect_files(${folder}/include ${headers})
endfunction()

# Builds the consumer with one command, as a makefile would.
function(build_with_pkg_config program)
  run(${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${prefix}/lib/pkgconfig
    pkg-config --cflags --libs quintral-web quintral-cmdline quintral-platform)
  separate_arguments(flags UNIX_COMMAND "${COMPILER_FLAGS} ${output}")
  run(${COMPILER} -std=c++${STANDARD} ${CMAKE_CURRENT_LIST_DIR}/consumer/consumer.cpp -o ${program}
    -Wl,-rpath,${prefix}/lib ${flags})
endfunction()

function(expect_working program)
  run(${program})
  set(expected "C++${STANDARD} a%20b=1%2e5 -1 10.4.9 5jan07 HasHost HasFolder 7\n")
  if(NOT output STREQUAL expected)
    message(FATAL_ERROR "${program} wrote\n${output}instead of\n${expected}")
  endif()
endfunction()

# Expects that the loader finds every library that this one needs.
function(expect_all_found library)
  file(GET_RUNTIME_DEPENDENCIES LIBRARIES ${library}
    RESOLVED_DEPENDENCIES_VAR found UNRESOLVED_DEPENDENCIES_VAR missing)
  if(missing)
    message(FATAL_ERROR "${library} does not find ${missing}")
  endif()
endfunction()

# Expects the shared libraries to export the names in symbols/, no more and no fewer.
function(expect_symbols)
  foreach(library cmdline platform support web)
    run(${NM} --dynamic --demangle --defined-only ${prefix}/lib/libquintral_${library}.so.1)
    string(REGEX REPLACE "(^|\n)[0-9a-f]+ [A-Za-z] " ";" names "${output}")
    list(TRANSFORM names STRIP)
    list(SORT names)
    list(REMOVE_DUPLICATES names) # constructors have two symbols of one name
    list(JOIN names "\n" found)
    string(STRIP "${found}" found)
    set(list ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/symbols/${library}.txt)
    file(READ ${list} expected)
    string(STRIP "${expected}" expected)
    if(NOT found STREQUAL expected)
      message(FATAL_ERROR "${list} differs from what the library exports:\n${found}")
    endif()
  endforeach()
endfunction()

# Installs one component and expects the remaining arguments as its files.
function(expect_component component)
  file(MAKE_DIRECTORY ${WORK_FOLDER}/${component})
  run(${CMAKE_COMMAND} --install ${WORK_FOLDER}/quintral --component ${component}
    --prefix ${WORK_FOLDER}/${component})
  expect_files(${WORK_FOLDER}/${component} ${ARGN})
endfunction()

# The three components have each file once.
function(expect_components)
  list(TRANSFORM public_headers PREPEND include/quintral/ OUTPUT_VARIABLE installed_headers)
  set(libraries cmdline platform support web)
  set(versioned_files)
  if(LINKAGE STREQUAL "SHARED")
    foreach(library ${libraries})
      list(APPEND versioned_files
        lib/libquintral_${library}.so.1 lib/libquintral_${library}.so.1.x)
    endforeach()
    list(TRANSFORM libraries REPLACE "(.+)" "lib/libquintral_\\1.so" OUTPUT_VARIABLE files_to_link)
  else()
    list(TRANSFORM libraries REPLACE "(.+)" "lib/libquintral_\\1.a" OUTPUT_VARIABLE files_to_link)
  endif()
  expect_component(runtime ${versioned_files})
  expect_component(development
    ${installed_headers}
    lib/cmake/quintral/quintral-config-TYPE.cmake
    lib/cmake/quintral/quintral-config-version.cmake
    lib/cmake/quintral/quintral-config.cmake
    ${files_to_link}
    lib/pkgconfig/quintral-cmdline.pc lib/pkgconfig/quintral-platform.pc
    lib/pkgconfig/quintral-support.pc lib/pkgconfig/quintral-web.pc
    share/man/man3/quintral-base64.3 share/man/man3/quintral-clocks.3
    share/man/man3/quintral-dates.3 share/man/man3/quintral-error.3
    share/man/man3/quintral-files.3 share/man/man3/quintral-form-body.3
    share/man/man3/quintral-long-options.3 share/man/man3/quintral-memory.3
    share/man/man3/quintral-platform.3 share/man/man3/quintral-proxy-settings.3
    share/man/man3/quintral-transaction.3 share/man/man3/quintral-transforms.3
    share/man/man3/quintral-update-check.3 share/man/man3/quintral-version-update.3)
  expect_component(tool
    bin/quintral
    share/bash-completion/completions/quintral
    share/doc/quintral/CHANGELOG.md share/doc/quintral/LICENSE
    share/doc/quintral/README.md share/doc/quintral/SECURITY.md
    share/doc/quintral/docs/building.md share/doc/quintral/docs/diagnostics.md
    share/doc/quintral/docs/outcome.schema.json
    share/doc/quintral/docs/performance-check.svg share/doc/quintral/docs/performance-growth.svg
    share/doc/quintral/docs/performance-ratios.svg share/doc/quintral/docs/performance.md
    share/doc/quintral/docs/protocol.md share/doc/quintral/docs/quintral.md
    share/doc/quintral/docs/servers-and-proxies.md
    share/doc/quintral/docs/strings-dates-clocks.md
    share/fish/vendor_completions.d/quintral.fish
    share/man/man1/quintral.1
    share/zsh/site-functions/_quintral)

  set(parts)
  foreach(component runtime development tool)
    file(GLOB_RECURSE files RELATIVE ${WORK_FOLDER}/${component} ${WORK_FOLDER}/${component}/*)
    list(APPEND parts ${files})
  endforeach()
  list(SORT parts)
  file(GLOB_RECURSE whole RELATIVE ${prefix} ${prefix}/*)
  if(NOT parts STREQUAL whole)
    message(FATAL_ERROR "the components hold ${parts}\nall is ${whole}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK_FOLDER})
string(COMPARE EQUAL ${LINKAGE} SHARED shared)
list(APPEND SETTINGS -DBUILD_SHARED_LIBS=${shared} -DCMAKE_COMPILE_WARNING_AS_ERROR=ON)

if(WAY STREQUAL "installed")
  build(${project_folder} ${WORK_FOLDER}/quintral
    -DQUINTRAL_BUILD_TESTS=OFF -DQUINTRAL_BUILD_EXAMPLES=OFF -DCMAKE_INSTALL_LIBDIR=lib)
  expect_components()
  # What is installed can be moved.
  file(RENAME ${prefix} ${WORK_FOLDER}/moved)
  set(prefix ${WORK_FOLDER}/moved)
  run(${prefix}/bin/quintral -version)
  if(LINKAGE STREQUAL "SHARED")
    expect_all_found(${prefix}/lib/libquintral_web.so.1)
    if(NM)
      expect_symbols()
    endif()
  endif()
endif()

build(${CMAKE_CURRENT_LIST_DIR}/consumer ${WORK_FOLDER}/consumer -DWAY=${WAY} -DLINKAGE=${LINKAGE}
  -DCMAKE_CXX_STANDARD=${STANDARD} -DCMAKE_PREFIX_PATH=${prefix}
  -DQUINTRAL_FOLDER=${project_folder})
if(NOT WAY STREQUAL "installed")
  expect_files(${prefix} bin/consumer) # nothing of ours
  expect_forwarding_folder()
endif()

expect_working(${WORK_FOLDER}/consumer/consumer)
if(WAY STREQUAL "installed")
  build_with_pkg_config(${WORK_FOLDER}/pkg-config-consumer)
  expect_working(${WORK_FOLDER}/pkg-config-consumer)
endif()
