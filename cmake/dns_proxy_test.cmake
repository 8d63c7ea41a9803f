# dns_proxy_test(<target> LABEL <label> SOURCES <file>... [LIBRARIES <target>...] [TIMEOUT <seconds>]
#                [OPTIMIZED]):
# a GoogleTest executable, each of its tests a test of CTest's under <label>.
#
# dns_proxy_label(<label> <target>...): what the tests of a label need. The target label_<label>
# builds that and nothing else.
#
# An executable that defines no main gets GoogleTest's.
#
# A test that the machine does not allow (no namespaces) says GTEST_SKIP() and counts as skipped.
#
# dns_proxy_test_options(<target> [OPTIMIZED]): what everything that a test is made of is compiled
# with. The code under test is optimised, the tests' own is not. GoogleTest is most of what a test's
# compiler reads: it is read once, into the precompiled header of test_support.
# CMAKE_DISABLE_PRECOMPILE_HEADERS does without, and so shows that each file includes what it uses.
#
# OPTIMIZED: the test's own code sets the pace, as where two threads meet at full speed. Under a
# sanitizer, which slows all of it down, it is compiled as the others.
#
# Under the undefined-behaviour sanitizer the tests' own code does without its checks of each pointer
# (null, aligned, large enough, of the right class), which are most of what it costs to compile. So
# does what it takes from headers; the program's own files have them all.
include(GoogleTest)

function(dns_proxy_test_options target)
  cmake_parse_arguments(test "OPTIMIZED" "" "" ${ARGN})
  if(dns_proxy_mac_SANITIZE)
    set(test_OPTIMIZED FALSE)
  endif()
  dns_proxy_options(${target})
  target_compile_options(${target} PRIVATE -g1)
  if(dns_proxy_mac_SANITIZE MATCHES "undefined")
    target_compile_options(${target} PRIVATE -fno-sanitize=null,alignment,object-size,vptr)
  endif()
  # A fuzzer's speed is what it finds in its time: in that preset all is optimised.
  if(NOT dns_proxy_mac_FUZZ AND NOT test_OPTIMIZED)
    target_compile_options(${target} PRIVATE -O0)
  endif()
  # A precompiled header fits the options that it was compiled with.
  if(NOT target STREQUAL "test_support" AND NOT test_OPTIMIZED)
    target_link_libraries(${target} PRIVATE test_support)
    target_precompile_headers(${target} REUSE_FROM test_support)
  endif()
endfunction()

function(dns_proxy_label label)
  if(NOT TARGET label_${label})
    add_custom_target(label_${label})
  endif()
  add_dependencies(label_${label} ${ARGN})
endfunction()

function(dns_proxy_test target)
  cmake_parse_arguments(test "OPTIMIZED" "LABEL;TIMEOUT" "SOURCES;LIBRARIES" ${ARGN})
  if(NOT test_TIMEOUT)
    set(test_TIMEOUT 60)
  endif()
  if(CMAKE_CROSSCOMPILING_EMULATOR)
    math(EXPR test_TIMEOUT "${test_TIMEOUT} * 5")  # an emulator takes a multiple of the time
  endif()
  add_executable(${target} ${test_SOURCES})
  dns_proxy_label(${test_LABEL} ${target})
  # The instruments cost least where several files are one to the compiler. Without instruments each
  # is one by itself.
  if(dns_proxy_mac_SANITIZE)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 6)
  endif()
  if(test_OPTIMIZED)
    dns_proxy_test_options(${target} OPTIMIZED)
  else()
    dns_proxy_test_options(${target})
  endif()
  target_link_libraries(${target} PRIVATE ${test_LIBRARIES} GTest::gtest_main GTest::gmock GTest::gtest)
  if(NOT CMAKE_CROSSCOMPILING OR CMAKE_CROSSCOMPILING_EMULATOR)
    gtest_discover_tests(${target}
      TEST_PREFIX "${test_LABEL}."
      DISCOVERY_TIMEOUT 60
      PROPERTIES
        LABELS "${test_LABEL}"
        TIMEOUT ${test_TIMEOUT}
        COST ${test_TIMEOUT}  # what may take long starts first
        SKIP_REGULAR_EXPRESSION "\\[  SKIPPED \\]")
  endif()
endfunction()
