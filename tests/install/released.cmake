# Checks how the released utility is linked: hardened, with its own C++ runtime, and without parts
# of the runtime that would make it start slower.
# Given: PROGRAM, READELF, STATIC_TOOL (true if the C library is linked in too), and FOLDERS, of
# which the program must not contain the paths.
cmake_minimum_required(VERSION 3.25)

function(read_elf result)
  execute_process(COMMAND ${READELF} ${ARGN} ${PROGRAM}
    OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
  set(${result} "${output}" PARENT_SCOPE)
endfunction()

function(expect text pattern)
  if(NOT text MATCHES "${pattern}")
    message(SEND_ERROR "${PROGRAM}: no match for ${pattern} in\n${text}")
  endif()
endfunction()

function(expect_not text pattern)
  if(text MATCHES "${pattern}")
    message(SEND_ERROR "${PROGRAM}: ${CMAKE_MATCH_0}")
  endif()
endfunction()

read_elf(header -h)
read_elf(segments -lW)
read_elf(dynamic -dW)
read_elf(symbols -sW)

# Position-independent, with all addresses resolved at start and read-only from then on.
expect("${header}" "Type: +DYN")
expect("${dynamic}" "FLAGS_1[^\n]* NOW[^\n]* PIE")
expect("${segments}" "GNU_RELRO")
expect("${segments}" "GNU_STACK[^\n]* RW +0x")

# With checks of the stack and of buffers.
expect("${symbols}" "__stack_chk_fail")
expect("${symbols}" " __(vsnprintf|snprintf|fdelt)_chk")

# Nothing but the C library and the loader is loaded.
string(REGEX MATCHALL "NEEDED[^\n]*" needed "${dynamic}")
foreach(library ${needed})
  expect("${library}" "\\[(libc\\.so\\.6|ld-linux[^]]*)\\]")
endforeach()
if(STATIC_TOOL)
  expect_not("${dynamic}" "NEEDED[^\n]*")
else()
  expect("${needed}" "libc\\.so\\.6")
endif()

# Streams, locales and the demangler of the C++ runtime have initial work of their own.
expect_not("${symbols}" "_ZNSt8ios_base[^\n]*")
expect_not("${symbols}" "_ZNSt6locale[^\n]*")
expect_not("${symbols}" "__cxa_demangle[^\n]*")

file(STRINGS ${PROGRAM} strings)
foreach(folder ${FOLDERS})
  string(FIND "${strings}" "${folder}" found)
  if(NOT found EQUAL -1)
    message(SEND_ERROR "${PROGRAM} contains the path ${folder}")
  endif()
endforeach()
