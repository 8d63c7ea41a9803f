# The programs run here, by what scripts/build-macos builds in the preset dev: the loader, and tests
# that start a program.
enable_language(C ASM)
set(CMAKE_ASM_FLAGS "${CMAKE_C_FLAGS}")  # the target
set(here "${PROJECT_SOURCE_DIR}/build/dev")

# The unwinder of exceptions is part of libSystem, so it is not part of the programs. LLVM's own comes
# with zig, as sources. As an executable to CMake, because the toolchain knows how to link those.
file(GLOB unwinder "${dns_proxy_mac_MACOS_TOOLCHAIN}/venv/lib/*/site-packages/ziglang/lib/libunwind")
add_executable(macos_unwinder
  "${unwinder}/src/UnwindLevel1-gcc-ext.c"
  "${unwinder}/src/UnwindLevel1.c"
  "${unwinder}/src/UnwindRegistersRestore.S"
  "${unwinder}/src/UnwindRegistersSave.S"
  "${unwinder}/src/libunwind.cpp")
target_include_directories(macos_unwinder PRIVATE "${unwinder}/include")
target_compile_definitions(macos_unwinder PRIVATE _LIBUNWIND_IS_NATIVE_ONLY)
target_compile_options(macos_unwinder PRIVATE -funwind-tables
  $<$<COMPILE_LANGUAGE:CXX>:-std=c++17 -fno-exceptions -fno-rtti>)
target_link_options(macos_unwinder PRIVATE -dylib)

# runs_here(<name> <target> [<option>...]): a script of that name, in the folder `runs`, that runs the
# program with options of the loader's.
set(runs "${CMAKE_CURRENT_BINARY_DIR}/runs")
function(runs_here name target)
  string(JOIN " " options ${ARGN})
  file(GENERATE OUTPUT "${runs}/${name}"
    CONTENT "#!/bin/sh
exec '${here}/tests/macos/run/run_macos_program' --library '$<TARGET_FILE:macos_unwinder>' \\
  ${options} '$<TARGET_FILE:${target}>' \"$@\"
"
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
      GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
endfunction()

function(runs_test name)
  cmake_parse_arguments(test "" "" "COMMAND;ENVIRONMENT;PROPERTIES" ${ARGN})
  add_test(NAME macos.runs.${name} COMMAND ${test_COMMAND})
  set_tests_properties(macos.runs.${name} PROPERTIES
    LABELS macos
    TIMEOUT 300
    ENVIRONMENT "${test_ENVIRONMENT}"
    ${test_PROPERTIES})
endfunction()

# The loader itself: what it makes of a linker's work, and of macOS's rules.
runs_test(loader
  COMMAND Python3::Interpreter "${CMAKE_CURRENT_SOURCE_DIR}/loader_test.py"
    "${here}/tests/macos/run/run_macos_program" "$<TARGET_FILE:macos_unwinder>"
    "${CMAKE_CXX_COMPILER}" "${dns_proxy_mac_LD64}" "${dns_proxy_mac_MACOS_TOOLCHAIN}/lib"
    ${dns_proxy_mac_MACOS_FLOOR})
add_executable(rules_test rules_test.cpp)
dns_proxy_test_options(rules_test)
target_link_libraries(rules_test PRIVATE GTest::gtest_main GTest::gtest)
macos_floor(rules_test 10.12)
runs_here(rules_test rules_test)
runs_test(rules COMMAND "${runs}/rules_test")

# One host of the service, for both systems.
add_executable(client_test_host ../clients/client_test_host.cpp)
dns_proxy_options(client_test_host)
target_link_libraries(client_test_host PRIVATE dns_proxy)
runs_here(client_test_host client_test_host)
# Before macOS 11 the system had nothing that checks a descriptor for FD_SET.
runs_here(client_test_host_before_11 client_test_host --without ___darwin_check_fd_set_overflow)
foreach(host client_test_host client_test_host_before_11)
  runs_test(${host}
    COMMAND Python3::Interpreter "${CMAKE_CURRENT_SOURCE_DIR}/service_test.py"
      "${runs}/${host}" "${here}/tests/clients/client_test_host"
    PROPERTIES SKIP_RETURN_CODE 77)
endforeach()

# The unit tests, and the rules of dns_proxy_host.
foreach(target unit_tests guard_agreement_test host_rules_test)
  runs_here(${target} ${target})
  runs_test(${target} COMMAND "${runs}/${target}")
endforeach()
runs_here(unit_isolated_tests unit_isolated_tests)
runs_test(unit_isolated_tests
  COMMAND Python3::Interpreter "${CMAKE_CURRENT_SOURCE_DIR}/with_own_etc.py"
    "${runs}/unit_isolated_tests"
  PROPERTIES SKIP_RETURN_CODE 77)

# The start-up step in a file system of its own: the tests of the label startup.
runs_here(dns_proxy_mac dns_proxy_mac)
runs_test(startup COMMAND "${here}/tests/startup/startup_tests"
  ENVIRONMENT "DNS_PROXY_MAC_PROGRAM=${runs}/dns_proxy_mac"
  PROPERTIES SKIP_REGULAR_EXPRESSION "\\[  SKIPPED \\]")

# dns_proxy_host and dns_proxy_trace, by the tests of the labels host and reader.
runs_here(dns_proxy_host dns_proxy_host)
runs_here(dns_proxy_trace dns_proxy_trace)
foreach(test host/guard host/start host/supervision host/under_fire host/upstreams host/trace
    host/status host/rights reader/served reader/tool)
  string(REPLACE "/" "." name ${test})
  runs_test(${name}
    COMMAND Python3::Interpreter "${PROJECT_SOURCE_DIR}/tests/${test}_test.py" -v
    ENVIRONMENT
      "DNS_PROXY_HOST=${runs}/dns_proxy_host"
      DNS_PROXY_HOST_IS_FOR_MACOS=yes
      "DNS_PROXY_TRACE=${runs}/dns_proxy_trace"
      "DNS_PROXY_SOURCE=${PROJECT_SOURCE_DIR}"
    PROPERTIES SKIP_RETURN_CODE 77)
endforeach()
