# 64-bit ARM, with Debian's g++-aarch64-linux-gnu. Programs run under qemu-user.
set(kestrin_architecture arm64)
set(kestrin_processor aarch64)
set(kestrin_compiler aarch64-linux-gnu)
set(kestrin_multiarch aarch64-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
find_program(KESTRIN_QEMU NAMES qemu-aarch64-static qemu-aarch64 REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR
  "${KESTRIN_QEMU};-L;${CMAKE_SYSROOT}"
  CACHE STRING "What runs a program")
