# Cross-compiles for Linux on 64-bit Arm: Debian's cross compiler, and qemu to run what comes out
# (scripts/test-arm64).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Into namespaces of its own first, with the word that it is there (tests/support/isolation.cpp): what
# runs under qemu cannot start itself anew inside.
set(CMAKE_CROSSCOMPILING_EMULATOR
  unshare --map-root-user --mount --net
  env DNS_PROXY_TEST_ISOLATED=1
  qemu-aarch64 -L /usr/aarch64-linux-gnu)
