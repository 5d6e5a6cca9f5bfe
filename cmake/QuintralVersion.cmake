# quintral_version_number(version result)
#
# The version MAJOR.MINOR.PATCH as the number that the utility sends. The service compares numbers,
# so they must be in the order of the versions: MAJOR, then as decimals two digits of MINOR and one
# of PATCH. 1.2.3 is 1.023, and 1.10.0 is 1.100. A version that does not fit is refused.
function(quintral_version_number version result)
  if(NOT version MATCHES "^(0|[1-9][0-9]*)[.](0|[1-9][0-9]*)[.](0|[1-9][0-9]*)$")
    message(FATAL_ERROR "The version ${version} is not MAJOR.MINOR.PATCH")
  endif()
  set(major ${CMAKE_MATCH_1})
  set(minor ${CMAKE_MATCH_2})
  set(patch ${CMAKE_MATCH_3})
  # A float represents all decimals of three places below 8192.
  if(major GREATER 8191 OR minor GREATER 99 OR patch GREATER 9)
    message(FATAL_ERROR "The version ${version} cannot be sent as a number: MAJOR is at most 8191, "
      "MINOR at most 99 and PATCH at most 9")
  endif()
  if(minor LESS 10)
    set(minor 0${minor})
  endif()
  set(${result} ${major}.${minor}${patch} PARENT_SCOPE)
endfunction()
