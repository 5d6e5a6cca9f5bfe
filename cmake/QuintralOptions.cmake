# The options. By default, a project that embeds this one gets the four libraries and nothing else.

option(QUINTRAL_BUILD_TOOL "Build the command-line utility" ${PROJECT_IS_TOP_LEVEL})
option(QUINTRAL_BUILD_EXAMPLES "Build the example programs" ${PROJECT_IS_TOP_LEVEL})
option(QUINTRAL_INSTALL "Create the install rules" ${PROJECT_IS_TOP_LEVEL})
option(QUINTRAL_HARDEN "Harden the optimised utility (Linux)" ON)
option(QUINTRAL_STATIC_RUNTIME
  "Link the C++ runtime into the optimised utility, unless BUILD_SHARED_LIBS is on (Linux)" ON)
option(QUINTRAL_STATIC_TOOL "Link the C library into the utility too (Linux)" OFF)
set(QUINTRAL_BUILD_TESTS AUTO CACHE STRING "Build the tests: ON, OFF, or AUTO (ON if this is the \
top-level project and the test packages are installed). BUILD_TESTING=OFF turns them off too.")
option(QUINTRAL_BUILD_FUZZERS "Build the fuzzers (needs clang and the tests)" OFF)
option(QUINTRAL_BUILD_BENCHMARKS "Build the benchmarks (needs utility, examples and peers)" OFF)

# quintral_resolve_tests(RESULT)
#
# Sets RESULT to ON or OFF. If something that the tests need is missing, AUTO gives OFF and a status
# line, ON is an error. AUTO stays in the cache, so that the next configure looks again.
function(quintral_resolve_tests result)
  set(${result} OFF PARENT_SCOPE)
  if(DEFINED BUILD_TESTING AND NOT BUILD_TESTING)
    return()
  elseif(QUINTRAL_BUILD_TESTS STREQUAL "AUTO" AND PROJECT_IS_TOP_LEVEL)
    set(level STATUS)
    set(way_out "Install what is missing and configure again.")
  elseif(QUINTRAL_BUILD_TESTS AND NOT QUINTRAL_BUILD_TESTS STREQUAL "AUTO")
    set(level FATAL_ERROR)
    set(way_out "Install what is missing, or configure with -DQUINTRAL_BUILD_TESTS=OFF.")
  else()
    return()
  endif()

  if(NOT QUINTRAL_BUILD_TOOL)
    message(${level} "The tests are not built: they need QUINTRAL_BUILD_TOOL=ON.")
    return()
  endif()
  if(BUILD_SHARED_LIBS)
    message(${level} "The tests are not built: they need BUILD_SHARED_LIBS=OFF, because they call "
      "functions that a shared library does not export.")
    return()
  endif()
  add_subdirectory(cmake/test-packages)
  if(missing)
    list(JOIN missing ", " missing)
    message(${level} "The tests are not built. Missing: ${missing}. ${way_out}")
    return()
  endif()
  set(${result} ON PARENT_SCOPE)
endfunction()
