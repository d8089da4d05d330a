# One language level, one set of warnings, and the sanitizer switches that the presets set.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE RelWithDebInfo)
endif()

set(MPLS_SANITIZE "" CACHE STRING "Sanitizers: address,undefined or thread or undefined")
option(MPLS_COVERAGE "Instrument for coverage reports" OFF)
option(MPLS_FUZZ "Build the fuzz targets (clang only)" OFF)
# Off in the package preset. The tests need them.
option(MPLS_FAULT_POINTS "Fault points: tests make operations fail" ON)
# Off in the clang preset, which thus finds missing includes.
option(MPLS_UNITY "Compile the sources of a library together, a few units a library" ON)

# Line tables are enough for backtraces; full debug information costs a third of the build. The debug preset has it.
foreach(language C CXX)
  set(CMAKE_${language}_FLAGS_RELWITHDEBINFO "-O2 -g1 -DNDEBUG")
endforeach()

# Otherwise ccache does not cache sources that use a precompiled header.
find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  set(CMAKE_CXX_COMPILER_LAUNCHER env CCACHE_SLOPPINESS=pch_defines,time_macros "${CCACHE_PROGRAM}")
endif()

add_library(mpls_settings INTERFACE)
target_include_directories(mpls_settings INTERFACE "${CMAKE_SOURCE_DIR}")
target_compile_options(mpls_settings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Wold-style-cast
  -Wcast-qual -Wformat=2 -Wimplicit-fallthrough -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_options(mpls_settings INTERFACE -Wthread-safety)
endif()
if(MPLS_SANITIZE)
  target_compile_options(mpls_settings INTERFACE
    -fsanitize=${MPLS_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(mpls_settings INTERFACE -fsanitize=${MPLS_SANITIZE})
endif()
if(MPLS_COVERAGE)
  target_compile_options(mpls_settings INTERFACE --coverage -O0)
  target_link_options(mpls_settings INTERFACE --coverage)
endif()
if(MPLS_FUZZ)
  target_compile_options(mpls_settings INTERFACE -fsanitize=fuzzer-no-link)
endif()
