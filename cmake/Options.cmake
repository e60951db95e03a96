# Build options and what every target is compiled with.
set(KEST_TESTS ON CACHE STRING
  "Build the tests: ON, OFF, or PLAIN for those alone that sanitizers take something from")
option(KEST_FUZZ "Build the fuzz targets (clang)" OFF)
option(KEST_PRECOMPILE "Compile the headers of the C++ library once for many sources" OFF)
option(KEST_UNITY "Compile several sources of libraries and programs at once" OFF)
set(KEST_SANITIZE "" CACHE STRING "Sanitizers to build with, e.g. address,undefined or thread")

find_program(KEST_CCACHE ccache)
if(KEST_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${KEST_CCACHE})
endif()

# A test program is linked in a sixth of the time. A release is linked by the system's own linker.
find_program(KEST_LLD ld.lld)
if(KEST_LLD AND NOT CMAKE_BUILD_TYPE STREQUAL "Release" AND NOT KEST_FUZZ)
  add_link_options(-fuse-ld=lld)
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

# kest_precompile(TARGET): its sources find what most of them include compiled already, a third of
# their work. A release does without: there each source has to include what it needs.
function(kest_precompile target)
  if(NOT KEST_PRECOMPILE)
    return()
  endif()
  if(NOT TARGET kest_headers)
    file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/headers.cpp CONTENT "// only for its headers\n")
    add_library(kest_headers STATIC ${PROJECT_BINARY_DIR}/headers.cpp)
    target_link_libraries(kest_headers PRIVATE kest_flags)
    kest_precompiled_for_ccache(kest_headers)
    target_precompile_headers(kest_headers PRIVATE
      <algorithm> <array> <atomic> <chrono> <condition_variable> <functional> <map> <memory> <mutex>
      <optional> <string> <string_view> <system_error> <thread> <unordered_map> <vector>)
  endif()
  kest_precompiled_for_ccache(${target})
  target_precompile_headers(${target} REUSE_FROM kest_headers)
endfunction()

# What a compiler cache needs where headers are compiled ahead.
function(kest_precompiled_for_ccache target)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${target} PRIVATE -fpch-preprocess)
  endif()
endfunction()
