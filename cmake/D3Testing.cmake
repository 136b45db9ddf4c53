# One test executable registered as one ctest test, so a label selects whole
# groups and a slow group shows up as one line:
#   d3_add_gtest(<name> SOURCES ... LIBS ... LABELS ... [TIMEOUT s] [ENV VAR=value ...])
#   d3_add_qtest(<name> ...)   the same for a QtTest program
function(_d3_add_test name framework)
  cmake_parse_arguments(T "" "TIMEOUT" "SOURCES;LIBS;LABELS;ENV" ${ARGN})
  add_executable(${name} ${T_SOURCES})
  target_link_libraries(${name} PRIVATE ${T_LIBS} ${framework} Threads::Threads)
  d3_warnings(${name})
  add_test(NAME ${name} COMMAND ${name})
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 120)
  endif()
  set_tests_properties(${name} PROPERTIES LABELS "${T_LABELS}" TIMEOUT ${T_TIMEOUT})
  if(T_ENV)
    set_tests_properties(${name} PROPERTIES ENVIRONMENT "${T_ENV}")
  endif()
  # `fuzz_tests` builds just what `ctest -L fuzz` runs, for the sanitizer pass.
  if("fuzz" IN_LIST T_LABELS)
    if(NOT TARGET fuzz_tests)
      add_custom_target(fuzz_tests)
    endif()
    add_dependencies(fuzz_tests ${name})
  endif()
endfunction()

function(d3_add_gtest name)
  _d3_add_test(${name} "GTest::gtest;GTest::gtest_main" ${ARGN})
endfunction()

function(d3_add_qtest name)
  _d3_add_test(${name} Qt5::Test ${ARGN})
endfunction()
