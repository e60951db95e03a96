# Build options and what every target is compiled with.
option(KEST_TESTS "Build the tests" ON)
option(KEST_FUZZ "Build the fuzz targets (clang)" OFF)
set(KEST_SANITIZE "" CACHE STRING "Sanitizers to build with, e.g. address,undefined or thread")

find_program(KEST_CCACHE ccache)
if(KEST_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${KEST_CCACHE})
endif()

add_library(kest_flags INTERFACE)
target_compile_options(kest_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Woverloaded-virtual -Werror
  -fno-omit-frame-pointer)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # g++ 12 warns of an overlap in every optimised `"text" + std::string` (its bug 105651).
  target_compile_options(kest_flags INTERFACE -Wno-restrict)
  if(KEST_SANITIZE)
    # With a sanitizer's calls in between it also sees strings that overrun their own objects.
    target_compile_options(kest_flags INTERFACE -Wno-array-bounds -Wno-stringop-overflow -Wno-stringop-overread -Wno-maybe-uninitialized)
  endif()
endif()
target_link_options(kest_flags INTERFACE -Wl,--as-needed -Wl,-z,relro,-z,now)
if(KEST_FUZZ)
  # clang keeps the sanitizers in the program, where libraries find them when they are loaded.
  target_compile_options(kest_flags INTERFACE -fsanitize=fuzzer-no-link)
else()
  target_link_options(kest_flags INTERFACE -Wl,-z,defs)
endif()
if(KEST_SANITIZE)
  target_compile_options(kest_flags INTERFACE -fsanitize=${KEST_SANITIZE})
  target_link_options(kest_flags INTERFACE -fsanitize=${KEST_SANITIZE})
else()
  target_compile_definitions(kest_flags INTERFACE $<$<CONFIG:Release>:_FORTIFY_SOURCE=2>)
endif()
if(KEST_SANITIZE MATCHES "undefined")
  # No vptr check: objects of the module carry no type information (-fno-rtti).
  target_compile_options(kest_flags INTERFACE -fno-sanitize-recover=undefined -fno-sanitize=vptr)
endif()
