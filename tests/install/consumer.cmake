# Builds and runs the consumer in consumer/ as a user would, and checks what the user gets.
#
# Given: WORK_FOLDER, GENERATOR, SETTINGS (arguments of every configure step), and
#   WAY       installed (find_package), embedded (add_subdirectory) or fetched (FetchContent)
#   LINKAGE   STATIC or SHARED
#   STANDARD  17 or 20
cmake_minimum_required(VERSION 3.25)
file(REAL_PATH ${CMAKE_CURRENT_LIST_DIR}/../.. project_folder)
set(prefix ${WORK_FOLDER}/prefix)

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

function(expect_files folder)
  file(GLOB_RECURSE files RELATIVE ${folder} ${folder}/*)
  if(NOT files STREQUAL ARGN)
    message(FATAL_ERROR "${folder} holds ${files}\ninstead of ${ARGN}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK_FOLDER})
string(COMPARE EQUAL ${LINKAGE} SHARED shared)
list(APPEND SETTINGS -DBUILD_SHARED_LIBS=${shared} -DCMAKE_COMPILE_WARNING_AS_ERROR=ON)

if(WAY STREQUAL "installed")
  build(${project_folder} ${WORK_FOLDER}/quintral
    -DQUINTRAL_BUILD_TESTS=OFF -DQUINTRAL_BUILD_EXAMPLES=OFF)
  expect_files(${prefix}/bin quintral)
  expect_files(${prefix}/include/quintral
    cmdline/long-options.h
    platform/file-ref-linux.h platform/file-ref.h platform/platform.h
    support/c-utils.h support/c-utils/files.h support/c-utils/memory.h
    support/c-utils/transforms.h support/clocks.h support/dates.h support/error.h
    support/format-attribute.h
    web/base64.h web/form-body.h web/proxy-settings.h web/transaction.h
    web/update-check.h web/version-update.h)
  run(${prefix}/bin/quintral -version)
endif()

build(${CMAKE_CURRENT_LIST_DIR}/consumer ${WORK_FOLDER}/consumer -DWAY=${WAY} -DLINKAGE=${LINKAGE}
  -DCMAKE_CXX_STANDARD=${STANDARD} -DCMAKE_PREFIX_PATH=${prefix}
  -DQUINTRAL_FOLDER=${project_folder})
if(NOT WAY STREQUAL "installed")
  expect_files(${prefix} bin/consumer) # nothing of ours
endif()

run(${WORK_FOLDER}/consumer/consumer)
set(expected "C++${STANDARD} a%20b=1%2e5 -1 10.4.9 5jan07 HasHost HasFolder\n")
if(NOT output STREQUAL expected)
  message(FATAL_ERROR "the consumer wrote\n${output}instead of\n${expected}")
endif()
