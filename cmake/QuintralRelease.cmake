# How the utility of an optimised build on Linux differs from that of a debug build: it is hardened
# and brings its own C++ runtime. The libraries are not affected: their archives hold ordinary
# objects, which any compiler and linker can use, and whose calls of the C library a test can
# replace by name. Debug builds, and so the sanitizer presets, keep the compiler's defaults.
#
# Four fifths of a check's instructions were the dynamic loader's work on the C++ runtime library.
# Linked into the utility, with what it does not use left out, the runtime costs next to nothing.

set(optimised_types Release RelWithDebInfo MinSizeRel)
list(JOIN optimised_types "," optimised)
set(optimised "$<CONFIG:${optimised}>")

# Fortification to level 3 where compiler and C library know it: it also checks blocks whose size
# is known only at run time. It is off without optimisation. -U because some compilers define it.
set(fortify_options -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
if(LINUX AND QUINTRAL_HARDEN AND CMAKE_BUILD_TYPE IN_LIST optimised_types)
  include(CheckCXXSourceCompiles)
  block(PROPAGATE fortify_options)
    set(CMAKE_REQUIRED_FLAGS "-O2 -Werror -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3")
    check_cxx_source_compiles("
      #include <cstring>
      #if __USE_FORTIFY_LEVEL != 3
      #error
      #endif
      int main() {}" QUINTRAL_CAN_FORTIFY_3)
    if(QUINTRAL_CAN_FORTIFY_3)
      set(fortify_options -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3)
    endif()
  endblock()
endif()

# quintral_release_program(target)
#
# Compiles and links a program the way the utility is released: hardened, without sections that
# nothing uses, with code and constants in one segment, so that fewer pages are mapped, and without
# the path of the build in file names.
function(quintral_release_program target)
  if(NOT LINUX)
    return()
  endif()
  set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  target_compile_options(${target} PRIVATE
    "$<${optimised}:-ffunction-sections;-fdata-sections;-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=>")
  target_link_options(${target} PRIVATE
    "$<${optimised}:LINKER:--gc-sections,--as-needed,-z,noseparate-code>")
  if(QUINTRAL_HARDEN)
    target_compile_options(${target} PRIVATE
      "$<${optimised}:-fstack-protector-strong;${fortify_options}>")
    target_link_options(${target} PRIVATE
      "$<${optimised}:-pie;LINKER:-z,relro,-z,now,-z,noexecstack>")
  endif()
endfunction()

# quintral_link_runtime(target)
#
# Links the C++ runtime into a program, or with QUINTRAL_STATIC_TOOL the C library too. Not if the
# project's libraries are shared: an exception that one of them throws must have one type for all.
function(quintral_link_runtime target)
  if(QUINTRAL_STATIC_TOOL AND (BUILD_SHARED_LIBS OR NOT LINUX))
    message(FATAL_ERROR "QUINTRAL_STATIC_TOOL needs Linux and BUILD_SHARED_LIBS=OFF")
  elseif(BUILD_SHARED_LIBS OR NOT LINUX)
    return()
  elseif(QUINTRAL_STATIC_TOOL)
    target_link_options(${target} PRIVATE -static-pie)
  elseif(QUINTRAL_STATIC_RUNTIME)
    target_link_options(${target} PRIVATE "$<${optimised}:-static-libstdc++;-static-libgcc>")
  else()
    return()
  endif()
  target_sources(${target} PRIVATE
    "$<${optimised}:${PROJECT_SOURCE_DIR}/tool/runtime-linux.cpp>")
endfunction()

# quintral_compile_whole(target library...)
#
# Compiles the libraries' sources into a program once more, with the program's options, and with
# GCC optimises across all of them. That leaves out a third of the code, and with it pages of
# memory: 2 to 4 % of the time of a check and 6 % of its memory.
function(quintral_compile_whole target)
  if(NOT LINUX OR BUILD_SHARED_LIBS OR NOT CMAKE_BUILD_TYPE IN_LIST optimised_types)
    return()
  endif()
  foreach(library ${ARGN})
    get_target_property(folder ${library} SOURCE_DIR)
    get_target_property(sources ${library} SOURCES)
    get_target_property(definitions ${library} COMPILE_DEFINITIONS)
    list(FILTER sources INCLUDE REGEX "[.]cpp$")
    list(TRANSFORM sources PREPEND ${folder}/)
    target_sources(${target} PRIVATE ${sources})
    target_compile_definitions(${target} PRIVATE ${definitions})
  endforeach()
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    set_target_properties(${target} PROPERTIES INTERPROCEDURAL_OPTIMIZATION ON)
    # Several parts would need make, and a warning says so where it is not installed.
    target_link_options(${target} PRIVATE -flto-partition=one)
  endif()
  # Nearly all of the utility's code runs once, so its size counts more than its speed: -O2 gives a
  # fifth more code, and a check takes more time and memory.
  target_compile_options(${target} PRIVATE -Os)
endfunction()
