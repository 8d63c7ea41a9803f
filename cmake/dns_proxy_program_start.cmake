# dns_proxy_program_start: where this target is made, programs link it and so begin with its start.
#
# The linker marks a program for control flow if every object in it is marked. The ones with which
# some C libraries start programs are not (Debian 12), and so no program there is. Where that is so,
# and a program with our start is linked of marked objects alone and works, ours takes their place.
# A program that is told to profile itself (-pg) keeps the C library's, which begins that.
include(CheckLinkerFlag)

if(CMAKE_CROSSCOMPILING OR CMAKE_CXX_FLAGS MATCHES "-pg")
  return()
endif()
set(CMAKE_REQUIRED_FLAGS -fcf-protection)
check_linker_flag(CXX LINKER:-z,cet-report=error dns_proxy_mac_START_IS_MARKED)
unset(CMAKE_REQUIRED_FLAGS)
if(dns_proxy_mac_START_IS_MARKED)
  return()
endif()

enable_language(ASM)
set(start "${CMAKE_CURRENT_LIST_DIR}/program_start.S")
if(NOT DEFINED dns_proxy_mac_OWN_START_WORKS)
  message(CHECK_START "Performing Test dns_proxy_mac_OWN_START_WORKS")
  set(program "${PROJECT_BINARY_DIR}/CMakeFiles/program_start_check")
  try_compile(linked "${program}.dir"
    SOURCES "${start}" "${CMAKE_CURRENT_LIST_DIR}/program_start_check.cpp"
    COMPILE_DEFINITIONS -fcf-protection
    LINK_OPTIONS -nostartfiles LINKER:-z,cet-report=error LINKER:--fatal-warnings
    COPY_FILE "${program}"
    OUTPUT_VARIABLE outcome)
  if(linked)
    execute_process(COMMAND "${program}" RESULT_VARIABLE outcome)
  endif()
  if(outcome STREQUAL "0")
    message(CHECK_PASS "Success")
    set(dns_proxy_mac_OWN_START_WORKS ON CACHE INTERNAL "A program that program_start.S begins")
  else()
    message(CHECK_FAIL "Failed")
    message(VERBOSE "${outcome}")
    set(dns_proxy_mac_OWN_START_WORKS OFF CACHE INTERNAL "A program that program_start.S begins")
  endif()
endif()

if(dns_proxy_mac_OWN_START_WORKS)
  add_library(dns_proxy_program_start OBJECT "${start}")
  target_compile_options(dns_proxy_program_start PRIVATE ${known_compile_flags})
  target_link_options(dns_proxy_program_start INTERFACE -nostartfiles)
endif()
