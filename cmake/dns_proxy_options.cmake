# dns_proxy_options(<target>): what every target of this project is compiled with.
#
# The include root is the repository's. Warnings are errors in developer mode only, so that a new
# compiler never breaks an embedder's build.
#
# dns_proxy_run_once(<file>...): of the directory's own, what takes seconds to optimise for the
# headers that it includes, and is run once or now and then: optimised a little, and not at all in a
# developer's builds but for those of a release for this system. What is not optimised cannot be
# fortified.
include(dns_proxy_sanitizers)

function(dns_proxy_run_once)
  set_source_files_properties(${ARGN} PROPERTIES
    COMPILE_OPTIONS "$<IF:$<AND:$<BOOL:${dns_proxy_mac_DEVELOPER_MODE}>,\
$<OR:$<BOOL:${CMAKE_CROSSCOMPILING}>,$<NOT:$<CONFIG:Release>>>>,-O0;-U_FORTIFY_SOURCE,-O1>")
endfunction()

function(dns_proxy_options target)
  # C++20 to compile, C++17 to include: a host's compiler may have a smaller default than that.
  set_target_properties(${target} PROPERTIES
    CXX_STANDARD 20
    CXX_STANDARD_REQUIRED ON
    CXX_EXTENSIONS OFF)
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "STATIC_LIBRARY")
    target_compile_features(${target} INTERFACE cxx_std_17)
  endif()
  target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${dns_proxy_mac_SOURCE_DIR}>)
  if(dns_proxy_mac_DEVELOPER_MODE)
    target_compile_options(${target} PRIVATE
      -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wformat=2 -Werror)
    # g++ 12 at -O3 sees strings overlap that cannot: a fault of its own, mended in 13.
    target_compile_options(${target} PRIVATE
      $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>)
  endif()
  dns_proxy_sanitizers(${target})
endfunction()
