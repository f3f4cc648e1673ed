# SPDX-License-Identifier: GPL-3.0-or-later
# Shared by all our own targets: warnings as errors, sanitizers, the root as include folder.

if(VELTRA_SANITIZE)
  add_compile_options(-fsanitize=${VELTRA_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${VELTRA_SANITIZE})
  if(VELTRA_SANITIZE MATCHES "undefined")
    # A report fails the test that caused it.
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
endif()

function(veltra_own_code target)
  target_include_directories(${target} PUBLIC ${CMAKE_SOURCE_DIR})
  if(WIN32)
    # Its headers define min, max, ERROR and more as macros.
    target_compile_definitions(${target} PRIVATE NOMINMAX WIN32_LEAN_AND_MEAN NOGDI)
  endif()
  if(MSVC)
    target_compile_options(${target} PRIVATE /W4 /WX)
  else()
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
      -Wcast-align -Wimplicit-fallthrough -Werror)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
      # GCC 12 sees overlapping copies in any optimised `"text" + string` (its bug 105651).
      target_compile_options(${target} PRIVATE -Wno-restrict)
      if(VELTRA_SANITIZE)
        # Between the sanitizers' checks it takes std::regex's moved functions for uninitialised.
        target_compile_options(${target} PRIVATE -Wno-maybe-uninitialized)
      endif()
    endif()
  endif()
endfunction()

# One static library a folder: veltra_library(dsp A.cpp B.cpp) makes veltra_dsp.
function(veltra_library name)
  add_library(veltra_${name} STATIC ${ARGN})
  veltra_own_code(veltra_${name})
endfunction()

# One test program a subsystem: veltra_test(dsp A.cpp B.cpp LIBS veltra_dsp [LABELS slow]) makes test_dsp
# and registers each of its cases with ctest.
function(veltra_test name)
  cmake_parse_arguments(arg "" "TIMEOUT" "LIBS;LABELS" ${ARGN})
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  add_executable(test_${name} ${arg_UNPARSED_ARGUMENTS})
  veltra_own_code(test_${name})
  target_link_libraries(test_${name} PRIVATE ${arg_LIBS} GTest::gtest GTest::gtest_main)
  if(CMAKE_CROSSCOMPILING)
    return() # scripts/windows starts the programs
  endif()
  gtest_discover_tests(test_${name} TEST_PREFIX "${name}." DISCOVERY_TIMEOUT 60
    WORKING_DIRECTORY ${CMAKE_SOURCE_DIR}
    PROPERTIES TIMEOUT ${arg_TIMEOUT} LABELS "${arg_LABELS}")
endfunction()
