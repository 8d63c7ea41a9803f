# dns_proxy_sanitizers(<target>): the instruments of the presets asan, tsan and coverage.
set(dns_proxy_mac_SANITIZE "" CACHE STRING
  "Sanitizers to build with: 'address,undefined', 'thread' or nothing")
option(dns_proxy_mac_COVERAGE "Count which lines and branches run (g++)" OFF)

function(dns_proxy_sanitizers target)
  if(dns_proxy_mac_SANITIZE)
    target_compile_options(${target} PRIVATE
      -fsanitize=${dns_proxy_mac_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(${target} PUBLIC -fsanitize=${dns_proxy_mac_SANITIZE})
  endif()
  if(dns_proxy_mac_COVERAGE)
    target_compile_options(${target} PRIVATE --coverage)
    target_link_options(${target} PUBLIC --coverage)
  endif()
endfunction()
