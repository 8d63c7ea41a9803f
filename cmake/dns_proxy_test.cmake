# dns_proxy_test(<target> LABEL <label> SOURCES <file>... [LIBRARIES <target>...] [TIMEOUT <seconds>]):
# a GoogleTest executable, each of its tests a test of CTest's under <label>.
#
# An executable that defines no main gets GoogleTest's.
#
# A test that the machine does not allow (no namespaces) says GTEST_SKIP() and counts as skipped.
include(GoogleTest)

function(dns_proxy_test target)
  cmake_parse_arguments(test "" "LABEL;TIMEOUT" "SOURCES;LIBRARIES" ${ARGN})
  if(NOT test_TIMEOUT)
    set(test_TIMEOUT 60)
  endif()
  add_executable(${target} ${test_SOURCES})
  dns_proxy_options(${target})
  target_link_libraries(${target} PRIVATE ${test_LIBRARIES} GTest::gtest_main GTest::gmock GTest::gtest)
  if(NOT CMAKE_CROSSCOMPILING)
    gtest_discover_tests(${target}
      TEST_PREFIX "${test_LABEL}."
      DISCOVERY_TIMEOUT 60
      PROPERTIES
        LABELS "${test_LABEL}"
        TIMEOUT ${test_TIMEOUT}
        SKIP_REGULAR_EXPRESSION "\\[  SKIPPED \\]")
  endif()
endfunction()
