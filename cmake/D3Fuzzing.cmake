# Fuzz targets: one function per decoder that takes bytes from outside,
#   d3_add_fuzzer(<name> SOURCES ... LIBS ...)
# with its seed corpus in fuzz/corpus/<name>/.
#
# With BUILD_FUZZERS=ON (clang only) each becomes a libFuzzer program, our
# code is built with coverage instrumentation, and ctest gets
# fuzz_<name>_run (label libfuzzer): FUZZ_SECONDS of coverage-guided
# fuzzing starting from the seeds, in a scratch corpus inside the build.
# Otherwise each becomes a program that replays its seed corpus, registered
# as fuzz_<name>_seeds (labels unit fuzz), so every build keeps the targets
# compiling and every seed passing (under the sanitizers too).
option(BUILD_FUZZERS "Build the libFuzzer targets (needs clang)" OFF)
set(FUZZ_SECONDS 20 CACHE STRING "How long each fuzz_<name>_run test fuzzes")
set(D3_FUZZ_CORPUS_DIR ${CMAKE_SOURCE_DIR}/fuzz/corpus)

if(BUILD_FUZZERS)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "BUILD_FUZZERS needs clang (-DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang)")
  endif()
  # Coverage feedback for everything we compile; the fuzzer's main is linked
  # into the fuzz programs alone.
  add_compile_options(-fsanitize=fuzzer-no-link)
  enable_testing()
endif()

function(d3_add_fuzzer name)
  cmake_parse_arguments(F "" "" "SOURCES;LIBS" ${ARGN})
  set(target fuzz_${name})
  set(corpus ${D3_FUZZ_CORPUS_DIR}/${name})
  if(NOT IS_DIRECTORY ${corpus})
    message(FATAL_ERROR "fuzz target ${name} has no seed corpus in ${corpus}")
  endif()
  if(BUILD_FUZZERS)
    add_executable(${target} ${F_SOURCES})
    target_link_options(${target} PRIVATE -fsanitize=fuzzer)
  else()
    add_executable(${target} ${F_SOURCES} ${CMAKE_SOURCE_DIR}/fuzz/replay_main.cpp)
  endif()
  target_link_libraries(${target} PRIVATE ${F_LIBS})
  target_include_directories(${target} PRIVATE ${CMAKE_SOURCE_DIR}/fuzz)
  d3_warnings(${target})
  if(NOT TARGET fuzzers)
    add_custom_target(fuzzers)
  endif()
  add_dependencies(fuzzers ${target})
  if(BUILD_FUZZERS)
    set(work ${CMAKE_BINARY_DIR}/fuzz-corpus/${name})
    file(MAKE_DIRECTORY ${work})
    # New inputs go to the scratch corpus (first folder); the seeds are read only.
    add_test(NAME ${target}_run
             COMMAND ${target} -max_total_time=${FUZZ_SECONDS} -rss_limit_mb=2048 -timeout=10
                     -print_final_stats=1 ${work} ${corpus})
    set_tests_properties(${target}_run PROPERTIES LABELS libfuzzer TIMEOUT 600)
  else()
    add_test(NAME ${target}_seeds COMMAND ${target} ${corpus})
    set_tests_properties(${target}_seeds PROPERTIES LABELS "unit;fuzz" TIMEOUT 120)
    if(NOT TARGET fuzz_tests)
      add_custom_target(fuzz_tests)
    endif()
    add_dependencies(fuzz_tests ${target})
  endif()
endfunction()
