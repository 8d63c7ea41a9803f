# dns_proxy_fuzzer(<name> SOURCES <file>... [LIBRARIES <target>...]): the executable <name>_fuzzer,
# and a CTest test under the label fuzz that replays corpus/<name>.
#
# In preset fuzz (clang) it is a libFuzzer executable, driven by scripts/fuzz. In every other preset
# a plain driver stands in for libFuzzer, so that the corpus is replayed by every test run. It comes
# with the library fuzz_main.
option(dns_proxy_mac_FUZZ "Link libFuzzer (clang) into the fuzz targets" OFF)

function(dns_proxy_fuzzer name)
  cmake_parse_arguments(fuzzer "" "" "SOURCES;LIBRARIES" ${ARGN})
  set(target ${name}_fuzzer)
  set(corpus "${CMAKE_CURRENT_SOURCE_DIR}/corpus/${name}")

  add_executable(${target} ${fuzzer_SOURCES})
  dns_proxy_test_options(${target})
  target_link_libraries(${target} PRIVATE fuzz_main ${fuzzer_LIBRARIES})
  if(dns_proxy_mac_FUZZ)
    target_link_options(${target} PRIVATE -fsanitize=fuzzer)
    set(replay -runs=0)
  else()
    set(replay)
  endif()
  add_test(NAME fuzz.${name} COMMAND ${target} ${replay} "${corpus}")
  set_tests_properties(fuzz.${name} PROPERTIES LABELS fuzz TIMEOUT 120)
  dns_proxy_label(fuzz ${target})
endfunction()
