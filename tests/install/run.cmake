# Stages an install of the build in BUILD_FOLDER below WORK_FOLDER, builds the consumer against it
# with the same compiler and flags, and compares what it prints.
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output
    ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${ARGN}\ngave ${result}:\n${output}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK_FOLDER})
run(${CMAKE_COMMAND} --install ${BUILD_FOLDER} --prefix ${WORK_FOLDER}/prefix)
run(${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR}/consumer -B ${WORK_FOLDER}/build -G ${GENERATOR}
  -DCMAKE_CXX_COMPILER=${COMPILER} -DCMAKE_CXX_FLAGS=${FLAGS}
  -DCMAKE_PREFIX_PATH=${WORK_FOLDER}/prefix)
run(${CMAKE_COMMAND} --build ${WORK_FOLDER}/build)

execute_process(COMMAND ${WORK_FOLDER}/build/consumer OUTPUT_VARIABLE said RESULT_VARIABLE result)
set(expected "a%20b=1%2e5 -1 10.4.9 5jan07 HasHost HasFolder\n")
if(NOT result EQUAL 0 OR NOT said STREQUAL expected)
  message(FATAL_ERROR "the consumer gave ${result} and said\n${said}instead of\n${expected}")
endif()
if(NOT EXISTS ${WORK_FOLDER}/prefix/bin/quintral)
  message(FATAL_ERROR "the utility is not installed")
endif()
