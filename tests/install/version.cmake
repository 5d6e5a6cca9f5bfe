# The number of a version. Called without VERSION: checks every row, and runs itself with each
# version that must be refused.
include(${CMAKE_CURRENT_LIST_DIR}/../../cmake/QuintralVersion.cmake)

if(DEFINED VERSION)
  quintral_version_number("${VERSION}" number)
  return()
endif()

function(expect_number version expected)
  quintral_version_number(${version} number)
  if(NOT number STREQUAL expected)
    message(SEND_ERROR "${version} is ${number}, expected ${expected}")
  endif()
endfunction()

function(expect_refused version message)
  execute_process(
    COMMAND ${CMAKE_COMMAND} -DVERSION=${version} -P ${CMAKE_CURRENT_FUNCTION_LIST_FILE}
    RESULT_VARIABLE result ERROR_VARIABLE error)
  string(REGEX REPLACE "[ \n]+" " " error "${error}") # the message is wrapped
  string(FIND "${error}" "${message}" found)
  if(result EQUAL 0 OR found EQUAL -1)
    message(SEND_ERROR "${version}: status ${result}, expected \"${message}\" in \"${error}\"")
  endif()
endfunction()

expect_number(0.0.0 0.000)
expect_number(0.0.1 0.001)
expect_number(1.0.0 1.000)
expect_number(1.0.9 1.009)
expect_number(1.2.3 1.023)
expect_number(1.9.9 1.099)
expect_number(1.10.0 1.100)
expect_number(1.99.9 1.999)
expect_number(2.0.0 2.000)
expect_number(10.0.0 10.000)
expect_number(8191.99.9 8191.999)

set(limits "MAJOR is at most 8191, MINOR at most 99 and PATCH at most 9")
foreach(version 1.100.0 1.0.10 1.100.10 8192.0.0)
  expect_refused(${version} "The version ${version} cannot be sent as a number: ${limits}")
endforeach()
foreach(version 1 1.2 1.2.3.4 1.02.3 1.2.x -1.2.3)
  expect_refused(${version} "The version ${version} is not MAJOR.MINOR.PATCH")
endforeach()
