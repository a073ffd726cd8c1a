# Compiler options that every target of this project shares.
add_library(mcast_options INTERFACE)
target_compile_options(mcast_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
target_compile_definitions(mcast_options INTERFACE _GNU_SOURCE)
if(MCAST_WERROR)
  target_compile_options(mcast_options INTERFACE -Werror)
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
  target_compile_options(mcast_options INTERFACE -Wthread-safety -Wthread-safety-beta -Werror=thread-safety
                                                -Werror=thread-safety-beta)
endif()
if(MCAST_SANITIZE)
  # The check of dynamic types opens a pipe, which fails wherever descriptors have run out.
  target_compile_options(mcast_options INTERFACE -fsanitize=${MCAST_SANITIZE} -fno-sanitize=vptr -fno-omit-frame-pointer
                                                 -fno-sanitize-recover=all)
  target_link_options(mcast_options INTERFACE -fsanitize=${MCAST_SANITIZE})
endif()
if(MCAST_FUZZ)
  # Coverage for the fuzzers, of the library's code as well as of the targets.
  target_compile_options(mcast_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

# For a folder whose code is large and seldom run for long: compiling it unoptimised takes less than half of the time
# and more than outweighs the slower run. Fuzzers need the speed.
macro(mcast_compile_fast)
  if(NOT MCAST_FUZZ)
    add_compile_options(-O0 -g1)
  endif()
endmacro()

# For a test program: GoogleTest and what goes with it are parsed once rather than in every file, and once for all
# programs of a folder, which share what the folder's first one made. Builds for coverage go without: they show which
# file forgot an include.
function(mcast_precompile_test_headers program)
  if(MCAST_COVERAGE)
    return()
  endif()
  get_property(first DIRECTORY PROPERTY MCAST_PRECOMPILED_BY)
  if(first)
    target_precompile_headers(${program} REUSE_FROM ${first})
  else()
    target_precompile_headers(${program} PRIVATE <gtest/gtest.h> <functional> <map> <optional> <string> <vector>)
    set_property(DIRECTORY PROPERTY MCAST_PRECOMPILED_BY ${program})
  endif()
endfunction()
