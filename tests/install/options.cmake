# Configures the project with different options and checks which parts the build has.
# Given: WORK_FOLDER, GENERATOR, COMPILER.
cmake_minimum_required(VERSION 3.25)
file(REAL_PATH ${CMAKE_CURRENT_LIST_DIR}/../.. project_folder)
set(build ${WORK_FOLDER}/build)
file(REMOVE_RECURSE ${WORK_FOLDER})

# Sets RESULT to the parts that the build folder has: tool, examples, tests, install.
function(find_parts result)
  file(STRINGS ${build}/CMakeFiles/TargetDirectories.txt targets)
  set(parts)
  foreach(row "tool quintral" "examples sample-update-service" "tests harness-test"
      "install install")
    string(REPLACE " " ";" row ${row})
    list(GET row 0 part)
    list(GET row 1 target)
    if("${targets}" MATCHES "/${target}\\.dir(;|$)")
      list(APPEND parts ${part})
    endif()
  endforeach()
  set(${result} ${parts} PARENT_SCOPE)
endfunction()

# expect(PARTS part... [STATUS message] [AGAIN] [WITH argument...])
# expect(ERROR message [WITH argument...])
#
# Configures with the arguments, with AGAIN on top of the previous cache. The messages are regular
# expressions. Without STATUS there is no status line about the tests.
function(expect)
  cmake_parse_arguments(PARSE_ARGV 0 arg "AGAIN" "STATUS;ERROR" "PARTS;WITH")
  if(NOT arg_AGAIN)
    file(REMOVE ${build}/CMakeCache.txt) # keeps what CMake knows about the compiler: saves time
  endif()
  execute_process(
    COMMAND ${CMAKE_COMMAND} -S ${project_folder} -B ${build} -G ${GENERATOR}
      -DCMAKE_CXX_COMPILER=${COMPILER} ${arg_WITH}
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE error)
  string(REGEX REPLACE "[ \n]+" " " error "${error}") # CMake wraps it

  set(faults)
  if(arg_ERROR)
    if(result EQUAL 0 OR NOT error MATCHES "${arg_ERROR}")
      set(faults "expected the error: ${arg_ERROR}")
    endif()
  elseif(NOT result EQUAL 0)
    set(faults "expected no error")
  else()
    find_parts(parts)
    if(NOT parts STREQUAL arg_PARTS)
      set(faults "expected the parts ${arg_PARTS}, found ${parts}")
    endif()
    string(REGEX MATCHALL "The tests are not built[^\n]*" notes "${output}")
    if(NOT notes MATCHES "^${arg_STATUS}$")
      list(APPEND faults "expected the status line '${arg_STATUS}', found '${notes}'")
    endif()
  endif()
  if(faults)
    list(JOIN faults "\n" faults)
    message(SEND_ERROR "${arg_WITH}\n${faults}\n${output}${error}")
  endif()
endfunction()

set(no_googletest
  -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON -DQUINTRAL_GOOGLETEST_DIR=${WORK_FOLDER}/nothing)
set(no_json -DCMAKE_DISABLE_FIND_PACKAGE_nlohmann_json=ON)
set(no_locale -DQUINTRAL_LOCALE_SOURCE=OFF)
set(lacks "The tests are not built. Missing")
set(lacks_tool "The tests are not built: they need QUINTRAL_BUILD_TOOL=ON")
set(lacks_static "The tests are not built: they need BUILD_SHARED_LIBS=OFF")

expect(PARTS tool examples tests install)
expect(PARTS tool examples install WITH -DQUINTRAL_BUILD_TESTS=OFF)
expect(PARTS tool examples install WITH -DBUILD_TESTING=OFF)
expect(PARTS tool examples install WITH -DBUILD_TESTING=OFF -DQUINTRAL_BUILD_TESTS=ON)
expect(PARTS tool examples install WITH -DBUILD_TESTING=ON -DQUINTRAL_BUILD_TESTS=OFF)
expect(PARTS tool examples WITH -DQUINTRAL_INSTALL=OFF -DQUINTRAL_BUILD_TESTS=OFF)
expect(PARTS tool tests install WITH -DQUINTRAL_BUILD_EXAMPLES=OFF)
expect(PARTS examples install STATUS "${lacks_tool}.*" WITH -DQUINTRAL_BUILD_TOOL=OFF)
expect(ERROR ${lacks_tool} WITH -DQUINTRAL_BUILD_TOOL=OFF -DQUINTRAL_BUILD_TESTS=ON)
expect(PARTS tool examples install STATUS "${lacks_static}.*" WITH -DBUILD_SHARED_LIBS=ON)
expect(ERROR ${lacks_static} WITH -DBUILD_SHARED_LIBS=ON -DQUINTRAL_BUILD_TESTS=ON)
expect(ERROR "QUINTRAL_BUILD_FUZZERS needs the tests"
  WITH -DQUINTRAL_BUILD_FUZZERS=ON -DQUINTRAL_BUILD_TESTS=OFF)
expect(ERROR "QUINTRAL_BUILD_BENCHMARKS needs QUINTRAL_BUILD_TOOL=ON"
  WITH -DQUINTRAL_BUILD_BENCHMARKS=ON -DQUINTRAL_BUILD_TOOL=OFF -DQUINTRAL_BUILD_TESTS=OFF)
expect(ERROR "QUINTRAL_BUILD_BENCHMARKS needs QUINTRAL_BUILD_EXAMPLES=ON"
  WITH -DQUINTRAL_BUILD_BENCHMARKS=ON -DQUINTRAL_BUILD_EXAMPLES=OFF -DQUINTRAL_BUILD_TESTS=OFF)
expect(ERROR "QUINTRAL_BUILD_BENCHMARKS needs BUILD_SHARED_LIBS=OFF"
  WITH -DQUINTRAL_BUILD_BENCHMARKS=ON -DBUILD_SHARED_LIBS=ON -DQUINTRAL_BUILD_TESTS=OFF)

# Without the packages the tests are off, unless they are asked for. Installing what is missing and
# configuring again turns them on.
expect(PARTS tool examples install STATUS "${lacks}: GoogleTest .*" WITH ${no_googletest})
expect(PARTS tool examples tests install AGAIN
  WITH -DCMAKE_DISABLE_FIND_PACKAGE_GTest=OFF -UQUINTRAL_GOOGLETEST_DIR)
expect(ERROR "${lacks}: GoogleTest " WITH ${no_googletest} -DQUINTRAL_BUILD_TESTS=ON)
expect(PARTS tool examples install STATUS "${lacks}: nlohmann-json .*" WITH ${no_json})
expect(PARTS tool examples install STATUS "${lacks}: localedef .*" WITH ${no_locale})
expect(ERROR "${lacks}: GoogleTest .*, nlohmann-json .*, localedef "
  WITH ${no_googletest} ${no_json} ${no_locale} -DQUINTRAL_BUILD_TESTS=ON)
