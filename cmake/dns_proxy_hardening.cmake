# dns_proxy_harden(<target>...): the flags with which distributions compile what they ship, as far as
# the compiler and the linker know them, for what people run and what is packaged. Who embeds the
# sources chooses flags of their own (CMakeLists.txt).
#
# Builds with instruments do without: a sanitizer has stronger checks of the same kind. macOS makes
# every program position-independent and binds it at once.
include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)
include(CheckPIESupported)

set(known_compile_flags)
set(known_link_flags)

# Adds to known_compile_flags what the compiler takes without a warning.
function(compile_flags_if_known)
  set(CMAKE_REQUIRED_FLAGS -Werror)
  foreach(flag IN LISTS ARGN)
    string(MAKE_C_IDENTIFIER "dns_proxy_mac_KNOWS_${flag}" known)
    check_cxx_compiler_flag("${flag}" ${known})
    if(${known})
      list(APPEND known_compile_flags "${flag}")
    endif()
  endforeach()
  set(known_compile_flags ${known_compile_flags} PARENT_SCOPE)
endfunction()

# Where the sources were is nobody's business: builds in two folders are equal, with -g too.
compile_flags_if_known(
  "-ffile-prefix-map=${PROJECT_SOURCE_DIR}=."
  "-ffile-prefix-map=${PROJECT_BINARY_DIR}=./build")

if(NOT dns_proxy_mac_SANITIZE AND NOT dns_proxy_mac_COVERAGE AND NOT dns_proxy_mac_FUZZ)
  compile_flags_if_known(-fstack-protector-strong)
  if(NOT APPLE)
    # The last two are for x86-64 and 64-bit Arm.
    compile_flags_if_known(
      -fstack-clash-protection -fcf-protection -mbranch-protection=standard)
    foreach(flag -z,relro -z,now)
      string(MAKE_C_IDENTIFIER "dns_proxy_mac_KNOWS_${flag}" known)
      check_linker_flag(CXX "LINKER:${flag}" ${known})
      if(${known})
        list(APPEND known_link_flags "LINKER:${flag}")
      endif()
    endforeach()
    check_pie_supported(LANGUAGES CXX)
    if(dns_proxy_mac_KNOWS__fcf_protection AND NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
      include(dns_proxy_program_start)
    endif()
    # The C library checks sizes where code is optimised. Some compilers bring a level of their own,
    # and a packager's is left alone.
    if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug" AND NOT CMAKE_CXX_FLAGS MATCHES "_FORTIFY_SOURCE")
      list(APPEND known_compile_flags -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
    endif()
  endif()
endif()

function(dns_proxy_harden)
  foreach(target IN LISTS ARGN)
    target_compile_options(${target} PRIVATE ${known_compile_flags})
    target_link_options(${target} PRIVATE ${known_link_flags})
    get_target_property(type ${target} TYPE)
    if(type STREQUAL "EXECUTABLE")
      set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
      if(TARGET dns_proxy_program_start)
        target_link_libraries(${target} PRIVATE dns_proxy_program_start)
      endif()
    elseif(CMAKE_CXX_LINK_PIE_SUPPORTED AND NOT CMAKE_POSITION_INDEPENDENT_CODE)
      target_compile_options(${target} PRIVATE -fPIE)  # such a program links them
    endif()
  endforeach()
endfunction()
