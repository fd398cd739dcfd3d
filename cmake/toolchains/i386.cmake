# 32-bit x86, with Debian's g++-i686-linux-gnu. The processor runs its programs, but this system has not
# got their loader.
set(kestrin_architecture i386)
set(kestrin_processor i686)
set(kestrin_compiler i686-linux-gnu)
set(kestrin_multiarch i386-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR
  "${CMAKE_SYSROOT}/usr/lib/ld-linux.so.2;--library-path;${CMAKE_SYSROOT}/usr/lib/i386-linux-gnu"
  CACHE STRING "What runs a program")
