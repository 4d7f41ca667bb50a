# How everything is compiled: one interface target, ku_build, that all targets link.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 99)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()

find_program(KU_CCACHE ccache)
if(KU_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${KU_CCACHE})
  set(CMAKE_C_COMPILER_LAUNCHER ${KU_CCACHE})
endif()

set(KU_SANITIZE "" CACHE STRING "Sanitizers, as for -fsanitize=")
option(KU_32BIT "Build a 32-bit library and tests" OFF)

# Flags of the machine and the sanitizers go to everything, GoogleTest included.
if(KU_32BIT)
  add_compile_options(-m32)
  add_link_options(-m32)
endif()
if(KU_SANITIZE)
  add_compile_options(-fsanitize=${KU_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${KU_SANITIZE})
endif()

add_library(ku_build INTERFACE)
target_compile_definitions(ku_build INTERFACE _FILE_OFFSET_BITS=64)
target_compile_options(ku_build INTERFACE
  -Wall -Wextra -Wpedantic -Werror -Wshadow -Wundef -Wpointer-arith -Wcast-qual
  -Wno-missing-field-initializers
  $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor>)

# gcc 12 warns of overlaps inside std::string that cannot be; tools and tests use it.
target_compile_options(ku_build INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)

# The library itself: no exceptions, no run-time types. Tools and tests may have both.
add_library(ku_lean INTERFACE)
target_compile_options(ku_lean INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wrestrict>)
target_compile_options(ku_lean INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti>)
