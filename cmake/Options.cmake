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
  # Programs with sanitizers are large, and there are a hundred of them: this linker takes a fraction of the time. Of shared
  # objects it keeps the names of wrapped calls, which looks as if they imported them.
  find_program(MCAST_LLD ld.lld)
  if(MCAST_LLD AND CMAKE_CXX_COMPILER_ID MATCHES Clang)
    target_link_options(mcast_options INTERFACE $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-fuse-ld=lld>)
  endif()
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

# The headers of the C++ library that most files include take most of the time that a file takes to compile.
set(MCAST_STANDARD_HEADERS <algorithm> <array> <chrono> <functional> <map> <memory> <optional> <set> <span> <string>
                           <string_view> <unordered_map> <utility> <vector>)

# mcast_precompile(TARGET [LIKE OTHER] [HEADER...]): they are parsed once rather than in every file, with further headers
# of the target; or once for the target and for another one, which is compiled with the same options.
function(mcast_precompile target)
  cmake_parse_arguments(PARSE_ARGV 1 with "" LIKE "")
  if(NOT MCAST_PRECOMPILE)
    return()
  elseif(with_LIKE)
    target_precompile_headers(${target} REUSE_FROM ${with_LIKE})
  else()
    target_precompile_headers(${target} PRIVATE ${MCAST_STANDARD_HEADERS} ${with_UNPARSED_ARGUMENTS})
  endif()
endfunction()

# mcast_discover_tests(PROGRAM PREFIX [EACH] [ENVIRONMENT...]): the tests of a program in one process, for a start takes
# longer than most of them; with EACH, where some can be skipped and it is to be seen which, each on its own but for
# those with sanitizers.
function(mcast_discover_tests program prefix)
  cmake_parse_arguments(PARSE_ARGV 2 with "EACH" "" "")
  if(with_EACH AND NOT MCAST_SANITIZE)
    gtest_discover_tests(${program} TEST_PREFIX ${prefix} DISCOVERY_MODE PRE_TEST
                         PROPERTIES TIMEOUT 120 ENVIRONMENT "${with_UNPARSED_ARGUMENTS}")
  else()
    add_test(NAME ${prefix}all COMMAND ${program} --gtest_brief=1)
    set_tests_properties(${prefix}all PROPERTIES TIMEOUT 600 ENVIRONMENT "${with_UNPARSED_ARGUMENTS}")
  endif()
endfunction()

# For a test program, with GoogleTest; all programs of a folder share what the folder's first one made.
function(mcast_precompile_test_headers program)
  get_property(first DIRECTORY PROPERTY MCAST_PRECOMPILED_BY)
  if(first)
    mcast_precompile(${program} LIKE ${first})
  else()
    mcast_precompile(${program} <gtest/gtest.h>)
    set_property(DIRECTORY PROPERTY MCAST_PRECOMPILED_BY ${program})
  endif()
endfunction()

# mcast_bundle(TARGET [ALONE...]): sources of this folder that share no names are compiled as one (see bundles.py), which
# takes less than half of the time, but for those named. They build one by one with MCAST_BUNDLE=OFF and in
# the debug preset, which shows what a source forgot to include.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
function(mcast_bundle target)
  if(NOT MCAST_BUNDLE OR MCAST_FUZZ OR CMAKE_BUILD_TYPE STREQUAL Debug)
    return()
  endif()
  get_target_property(sources ${target} SOURCES)
  list(FILTER sources INCLUDE REGEX "^${CMAKE_CURRENT_SOURCE_DIR}/.*\\.cpp$")
  list(TRANSFORM ARGN PREPEND "${CMAKE_CURRENT_SOURCE_DIR}/" OUTPUT_VARIABLE alone)
  list(REMOVE_ITEM sources ${alone})
  # What a change of a source makes of its bundle is known only when the bundles are made anew.
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/bundles.py ${sources})
  execute_process(COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/cmake/bundles.py ${sources}
                  OUTPUT_VARIABLE lines OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  string(REPLACE "\n" ";" lines "${lines}")
  foreach(line ${lines})
    string(REGEX MATCH "^([0-9]+) (.*)$" line ${line})
    set_source_files_properties(${CMAKE_MATCH_2} PROPERTIES UNITY_GROUP ${CMAKE_MATCH_1})
  endforeach()
  set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    # It takes a source in a bundle for a header.
    target_compile_options(${target} PRIVATE -Wno-subobject-linkage)
  endif()
endfunction()
