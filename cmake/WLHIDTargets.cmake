# SPDX-License-Identifier: Apache-2.0

# Functions that define this project's targets, so that a folder's CMakeLists.txt only lists sources and dependencies.
#
#   wlhid_library(NAME SOURCES … [DEPENDS …])            static library wlhid::NAME
#   wlhid_executable(NAME SOURCES … [DEPENDS …])         program
#   wlhid_test(NAME SOURCES … [DEPENDS …] [LABELS …] [TIMEOUT S] [SERIAL])
#                                                        GoogleTest program; one CTest entry per program
#   wlhid_runnable(VARIABLE TARGET)                      a file that runs a program of this build
#   wlhid_fuzz_target(NAME SOURCE … [DEPENDS …])         fuzz/NAME.cpp; replays fuzz/corpus/NAME/ as a test
#   wlhid_bench(NAME SOURCES … [DEPENDS …])              benchmark program
#
# There is one library per folder; it may use only what it lists under DEPENDS (a test checks the #includes).

add_library(wlhid_flags INTERFACE)
target_compile_features(wlhid_flags INTERFACE cxx_std_20)
target_include_directories(wlhid_flags INTERFACE "${PROJECT_SOURCE_DIR}")
target_compile_options(wlhid_flags INTERFACE -Wall -Wextra -Wpedantic $<$<BOOL:${WLHID_WERROR}>:-Werror>)
# The standard library checks indices and smart pointers: a mistake ends the process and becomes nothing worse.
target_compile_definitions(wlhid_flags INTERFACE _GNU_SOURCE _GLIBCXX_ASSERTIONS)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC 12 at -O3 warns of overlapping copies in the concatenation of a literal and a std::string, which cannot overlap.
  target_compile_options(wlhid_flags INTERFACE -Wno-restrict)
endif()
find_package(Threads REQUIRED)
target_link_libraries(wlhid_flags INTERFACE Threads::Threads)
if(WLHID_SANITIZE)
  target_compile_options(wlhid_flags INTERFACE -fsanitize=${WLHID_SANITIZE} -fno-omit-frame-pointer
                         -fno-sanitize-recover=all)
  target_link_options(wlhid_flags INTERFACE -fsanitize=${WLHID_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Instrumented code hides from GCC 12 that an optional is looked at only if it holds something. The other builds do warn.
    target_compile_options(wlhid_flags INTERFACE -Wno-maybe-uninitialized)
  endif()
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND WLHID_SANITIZE MATCHES "thread")
    # GCC warns that TSan does not model fences; the code uses none, but the standard library's shared_ptr may.
    target_compile_options(wlhid_flags INTERFACE -Wno-tsan)
  endif()
endif()
if(WLHID_COVERAGE)
  # Without atomic updates, counters of several threads lose counts, and the tool that reads them rejects negative ones.
  target_compile_options(wlhid_flags INTERFACE --coverage -O0 -fprofile-update=atomic)
  target_link_options(wlhid_flags INTERFACE --coverage)
endif()
if(WLHID_FUZZ)
  target_compile_options(wlhid_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()

function(wlhid_library name)
  cmake_parse_arguments(A "" "" "SOURCES;DEPENDS" ${ARGN})
  add_library(wlhid_${name} STATIC ${A_SOURCES})
  add_library(wlhid::${name} ALIAS wlhid_${name})
  target_link_libraries(wlhid_${name} PUBLIC wlhid_flags ${A_DEPENDS})
  target_compile_options(wlhid_${name} PRIVATE ${WLHID_PRODUCT_WARNINGS})
  # Of one compilation, what an application links is put together as a shared and as a static library (WLHIDLibraries).
  # Nothing replaces a function of the shared library at run time, so the compiler may still inline what it offers.
  target_compile_options(wlhid_${name} PRIVATE -fno-semantic-interposition)
  set_target_properties(wlhid_${name} PROPERTIES
    POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
    UNITY_BUILD "${WLHID_FAST_BUILD}" UNITY_BUILD_BATCH_SIZE 6)
endfunction()

function(wlhid_executable name)
  cmake_parse_arguments(A "" "" "SOURCES;DEPENDS" ${ARGN})
  add_executable(${name} ${A_SOURCES})
  target_link_libraries(${name} PRIVATE wlhid_flags ${A_DEPENDS})
  target_compile_options(${name} PRIVATE ${WLHID_PRODUCT_WARNINGS})
endfunction()

# Sets VARIABLE to a file that runs the program TARGET when it is executed: the program itself or, where the processor is
# emulated, a script that starts the emulator.
function(wlhid_runnable variable target)
  set(file "$<TARGET_FILE:${target}>")
  if(CMAKE_CROSSCOMPILING_EMULATOR)
    list(JOIN CMAKE_CROSSCOMPILING_EMULATOR "' '" emulator)
    set(script "${CMAKE_CURRENT_BINARY_DIR}/${target}.sh")
    file(GENERATE OUTPUT "${script}" CONTENT "#!/bin/sh\nexec '${emulator}' '${file}' \"$@\"\n"
         FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
    set(file "${script}")
  endif()
  set(${variable} "${file}" PARENT_SCOPE)
endfunction()

# Compiling the tests takes longer than running them, so only the code under test is optimised.
set(WLHID_TEST_OPTIONS "$<$<CONFIG:RelWithDebInfo>:-O1;-g1>")
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC 12 at -O1 assumes that every concatenation fits into the string's internal buffer, and warns.
  list(APPEND WLHID_TEST_OPTIONS -Wno-array-bounds -Wno-stringop-overflow)
endif()

# The test framework's headers, precompiled once for all test programs.
function(wlhid_precompile_test_headers name)
  if(NOT WLHID_FAST_BUILD)
    return()
  endif()
  if(NOT TARGET wlhid_test_headers)
    file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/test_headers.cpp" CONTENT "")
    add_library(wlhid_test_headers OBJECT "${PROJECT_BINARY_DIR}/test_headers.cpp")
    target_link_libraries(wlhid_test_headers PRIVATE wlhid_flags GTest::gmock)
    target_compile_options(wlhid_test_headers PRIVATE "${WLHID_TEST_OPTIONS}")
    target_precompile_headers(wlhid_test_headers PRIVATE <gmock/gmock.h> <gtest/gtest.h> <filesystem> <fstream> <functional>
      <map> <optional> <random> <string> <vector>)
  endif()
  target_precompile_headers(${name} REUSE_FROM wlhid_test_headers)
endfunction()

function(wlhid_test name)
  cmake_parse_arguments(A "SERIAL" "TIMEOUT" "SOURCES;DEPENDS;LABELS" ${ARGN})
  add_executable(${name} ${A_SOURCES})
  target_link_libraries(${name} PRIVATE wlhid_flags ${A_DEPENDS} GTest::gmock GTest::gtest_main)
  target_compile_options(${name} PRIVATE "${WLHID_TEST_OPTIONS}")
  wlhid_precompile_test_headers(${name})
  if(NOT A_TIMEOUT)
    set(A_TIMEOUT 300)
  endif()
  if(CMAKE_CROSSCOMPILING_EMULATOR)  # an emulated program takes several times as long
    math(EXPR A_TIMEOUT "${A_TIMEOUT} * 5")
  endif()
  add_test(NAME ${name} COMMAND ${name})
  foreach(label ${A_LABELS})  # tests_unit builds what a run of the tests with that label needs
    if(NOT TARGET tests_${label})
      add_custom_target(tests_${label})
    endif()
    add_dependencies(tests_${label} ${name})
  endforeach()
  set_tests_properties(${name} PROPERTIES TIMEOUT ${A_TIMEOUT} LABELS "${A_LABELS}" RUN_SERIAL "${A_SERIAL}"
    ENVIRONMENT "WLHID_SOURCE_DIR=${PROJECT_SOURCE_DIR};WLHID_BINARY_DIR=${PROJECT_BINARY_DIR}")
endfunction()

function(wlhid_fuzz_target name)
  cmake_parse_arguments(A "" "" "SOURCES;DEPENDS" ${ARGN})
  add_executable(fuzz_${name} ${A_SOURCES})
  target_link_libraries(fuzz_${name} PRIVATE wlhid_flags ${A_DEPENDS})
  if(WLHID_FUZZ)
    target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
  else()
    target_sources(fuzz_${name} PRIVATE "${PROJECT_SOURCE_DIR}/fuzz/replay_main.cpp")
    add_test(NAME fuzz_${name}_replay COMMAND fuzz_${name} "${PROJECT_SOURCE_DIR}/fuzz/corpus/${name}")
    set_tests_properties(fuzz_${name}_replay PROPERTIES TIMEOUT 120 LABELS fuzz)
  endif()
endfunction()

function(wlhid_bench name)
  cmake_parse_arguments(A "" "" "SOURCES;DEPENDS" ${ARGN})
  add_executable(${name} ${A_SOURCES})
  target_link_libraries(${name} PRIVATE wlhid_flags ${A_DEPENDS})
endfunction()
