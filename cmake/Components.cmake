# mpls_library(name SOURCES ... DEPS ... [ALONE ...]): a library. Headers take most of the compilation time, so up to 20 sources
# are compiled as one unit, except those after ALONE, which repeat names of others.
# mpls_program(name SOURCES ... DEPS ...): a program; MPLS_VERSION is the project's version.
# mpls_test(name SOURCES ... DEPS ... [LABELS ...] [TIMEOUT s]): a GoogleTest program, one CTest entry.
# Sanitizers have twice the time.
include(CMakeParseArguments)

function(mpls_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS;ALONE" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES} ${ARG_ALONE})
  target_link_libraries(${name} PUBLIC mpls_settings ${ARG_DEPS} Threads::Threads)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # No function of a library is replaced when a program is loaded: the compiler may inline it.
    target_compile_options(${name} PRIVATE -fno-semantic-interposition)
  endif()
  set_target_properties(${name} PROPERTIES UNITY_BUILD ${MPLS_UNITY} UNITY_BUILD_BATCH_SIZE 20)
  if(ARG_ALONE)
    set_source_files_properties(${ARG_ALONE} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
  endif()
endfunction()

function(mpls_program name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE mpls_settings ${ARG_DEPS} Threads::Threads)
  target_compile_definitions(${name} PRIVATE MPLS_VERSION="${PROJECT_VERSION}")
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
endfunction()

function(mpls_test name)
  if(MPLS_FUZZ OR NOT MPLS_FAULT_POINTS OR NOT GTest_FOUND)
    return()
  endif()
  cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;DEPS;LABELS" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  if(MPLS_SANITIZE)
    math(EXPR ARG_TIMEOUT "2 * ${ARG_TIMEOUT}")
  endif()
  if(NOT ARG_LABELS)
    set(ARG_LABELS unit)
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE mpls_settings ${ARG_DEPS} GTest::gmock GTest::gtest_main Threads::Threads)
  mpls_test_options(${name})
  mpls_use_test_headers(${name})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/test")
  add_test(NAME ${name} COMMAND ${name} WORKING_DIRECTORY "${CMAKE_SOURCE_DIR}")
  set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT} LABELS "${ARG_LABELS}")
endfunction()

# mpls_wrap(test SYMBOL...): calls of these functions from other libraries reach the test's own __wrap_SYMBOL, which can
# record the arguments and call __real_SYMBOL.
function(mpls_wrap name)
  if(TARGET ${name})
    list(TRANSFORM ARGN PREPEND "LINKER:--wrap=" OUTPUT_VARIABLE options)
    target_link_options(${name} PRIVATE ${options})
  endif()
endfunction()

# mpls_fuzz(name SOURCES ... DEPS ... [SEEDS path...]): a libFuzzer target, in the fuzz preset only. Its seeds are fuzz/corpus/NAME
# and the files and folders of SEEDS, relative to the repository; its dictionary is fuzz/dictionaries/NAME.dict. Each target is
# a line of BUILD/fuzz/targets, its name and its seeds, for scripts/fuzz; `fuzz_targets` builds all of them.
function(mpls_fuzz name)
  if(NOT MPLS_FUZZ)
    return()
  endif()
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS;SEEDS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE mpls_settings ${ARG_DEPS} fuzz_initialize Threads::Threads)
  target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/fuzz")
  if(NOT TARGET fuzz_targets)
    add_custom_target(fuzz_targets)
    file(WRITE "${CMAKE_BINARY_DIR}/fuzz/targets" "")
  endif()
  add_dependencies(fuzz_targets ${name})
  list(JOIN ARG_SEEDS " " seeds)
  file(APPEND "${CMAKE_BINARY_DIR}/fuzz/targets" "${name} ${seeds}\n")
endfunction()
