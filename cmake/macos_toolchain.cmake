# Cross-compiles for macOS on Linux: zig's clang and SDK headers, LLVM's linker. For one processor:
# -D dns_proxy_mac_MACOS_PROCESSOR=x86_64 (without it, too) or =arm64.
#
# scripts/build-macos fills the folder that is used here. What comes out is not signed by anybody:
# docs/macos.md.
if(NOT dns_proxy_mac_MACOS_PROCESSOR)
  set(dns_proxy_mac_MACOS_PROCESSOR x86_64)
endif()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES dns_proxy_mac_MACOS_PROCESSOR)
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR ${dns_proxy_mac_MACOS_PROCESSOR})

set(dns_proxy_mac_MACOS_TOOLCHAIN "${CMAKE_CURRENT_LIST_DIR}/../build/macos-toolchain")
cmake_path(NORMAL_PATH dns_proxy_mac_MACOS_TOOLCHAIN)

# The oldest macOS that the programs start on; 11.0 is the first for Apple silicon. What clang calls
# the processor, and where its C++ library is. scripts/build-macos reads the targets here.
if(dns_proxy_mac_MACOS_PROCESSOR STREQUAL "arm64")
  set(dns_proxy_mac_MACOS_FLOOR 11.0)
  set(macos_target aarch64-macos.11.0)
  set(macos_libraries "${dns_proxy_mac_MACOS_TOOLCHAIN}/lib-arm64")
else()
  set(dns_proxy_mac_MACOS_FLOOR 10.8)
  set(macos_target x86_64-macos.10.8)
  set(macos_libraries "${dns_proxy_mac_MACOS_TOOLCHAIN}/lib")
endif()

# The SDK whose headers zig 0.13 carries.
set(dns_proxy_mac_MACOS_SDK 14.0)

set(CMAKE_C_COMPILER "${dns_proxy_mac_MACOS_TOOLCHAIN}/bin/cc")
set(CMAKE_CXX_COMPILER "${dns_proxy_mac_MACOS_TOOLCHAIN}/bin/c++")
find_program(CMAKE_AR NAMES llvm-ar REQUIRED)
find_program(CMAKE_RANLIB NAMES llvm-ranlib REQUIRED)
find_program(CMAKE_INSTALL_NAME_TOOL NAMES llvm-install-name-tool llvm-install-name-tool-14 REQUIRED)
find_program(dns_proxy_mac_LD64 NAMES ld64.lld ld64.lld-14 REQUIRED)

# No Apple SDK folder and no flag for one: zig brings both.
set(CMAKE_OSX_SYSROOT "")
set(CMAKE_OSX_DEPLOYMENT_TARGET "")

# When CMake examines the compilers it adds flags of a compiler's to the link.
get_property(examining GLOBAL PROPERTY IN_TRY_COMPILE)
set(link_flags "<LINK_FLAGS>")
if(examining)
  set(link_flags "")
endif()

# Without a version in the target zig takes a floor of its own choice, which is much newer. A call
# to what the floor lacks, without a test for it, is an error. Without -g0 zig puts debugging
# information into every object, and with it the folders of this machine into what is handed out;
# so do the checks in libc++'s headers, which name their files.
foreach(language C CXX)
  set(CMAKE_${language}_FLAGS_INIT
    "-target ${macos_target} -g0 -fno-sanitize=undefined -Werror=unguarded-availability -fmacro-prefix-map=${dns_proxy_mac_MACOS_TOOLCHAIN}=toolchain")
  # ld64.lld by its own command line. It keeps an import weak that every object refers to weakly,
  # which is what lets a program start where the system lacks the symbol. For arm64 it adds the
  # ad-hoc signature without which the kernel starts nothing there.
  #
  # -S: the C++ library has debugging information, of which the folders of this machine would remain.
  #
  # zig's compiler_rt is left out: all that it has is in libSystem, which has faster ones of some.
  set(CMAKE_${language}_LINK_EXECUTABLE
    "${dns_proxy_mac_LD64} -arch ${dns_proxy_mac_MACOS_PROCESSOR} -platform_version macos ${dns_proxy_mac_MACOS_FLOOR} ${dns_proxy_mac_MACOS_SDK} -dead_strip -S ${link_flags} -o <TARGET> <OBJECTS> <LINK_LIBRARIES> ${macos_libraries}/libc++.a ${macos_libraries}/libc++abi.a ${dns_proxy_mac_MACOS_TOOLCHAIN}/lib/libSystem.tbd")
endforeach()

# Header-only libraries of the build machine come by a folder of links; nothing else of it is seen.
set(CMAKE_FIND_ROOT_PATH "${dns_proxy_mac_MACOS_TOOLCHAIN}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
