# Headers that most tests include, parsed once. Standard and test headers only, so that a change of a project header rebuilds
# only the files that include it. Libraries have none: with optimization g++ 12 emits false warnings about std::string of a
# precompiled header.
#
# mpls_test_options(target): test code runs for milliseconds, so it is compiled without optimization, and in the release
# build without debug information.
# mpls_use_test_headers(target): the sources of a test program start with these headers.
set(MPLS_TEST_HEADERS <algorithm> <array> <atomic> <cerrno> <charconv> <chrono> <cstdint> <cstdio> <cstdlib> <cstring>
  <deque> <filesystem> <fstream> <functional> <map> <memory> <mutex> <optional> <set> <span> <sstream> <stdexcept> <string>
  <string_view> <thread> <unordered_map> <utility> <variant> <vector> <gmock/gmock.h> <gtest/gtest.h>)

function(mpls_test_options target)
  target_compile_options(${target} PRIVATE -O0 $<$<CONFIG:RelWithDebInfo>:-g0>)
  set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE OFF)
endfunction()

function(mpls_use_test_headers target)
  if(TARGET mpls_test_headers)
    target_precompile_headers(${target} REUSE_FROM mpls_test_headers)
    target_compile_options(${target} PRIVATE -fpch-preprocess)
  endif()
endfunction()

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND GTest_FOUND)
  file(CONFIGURE OUTPUT "${CMAKE_BINARY_DIR}/headers.cpp" CONTENT "")
  add_library(mpls_test_headers OBJECT "${CMAKE_BINARY_DIR}/headers.cpp")
  target_link_libraries(mpls_test_headers PRIVATE mpls_settings GTest::gmock Threads::Threads)
  mpls_test_options(mpls_test_headers)
  target_compile_options(mpls_test_headers PRIVATE -fpch-preprocess)
  target_precompile_headers(mpls_test_headers PRIVATE ${MPLS_TEST_HEADERS})
endif()
