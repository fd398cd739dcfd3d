# Debian's cross compiler for another architecture, against that architecture's libraries as the same
# Debian release has them. Included by the file of the architecture, which has set:
#   kestrin_architecture  Debian's name of it
#   kestrin_processor     what CMake calls it
#   kestrin_compiler      what the compiler's commands begin with
#   kestrin_multiarch     the folder of its libraries
# Its programs do not run here by themselves: that file says what runs them, in
# CMAKE_CROSSCOMPILING_EMULATOR.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${kestrin_processor})
set(CMAKE_C_COMPILER ${kestrin_compiler}-gcc)
set(CMAKE_CXX_COMPILER ${kestrin_compiler}-g++)

# scripts/lib/roots.sh puts the libraries there.
if(NOT CMAKE_SYSROOT)
  cmake_host_system_information(RESULT kestrin_release QUERY DISTRIB_VERSION_CODENAME)
  get_filename_component(CMAKE_SYSROOT
    "${CMAKE_CURRENT_LIST_DIR}/../../build/roots/${kestrin_release}-${kestrin_architecture}-libraries" ABSOLUTE)
endif()
if(NOT EXISTS "${CMAKE_SYSROOT}/usr/lib/${kestrin_multiarch}/libc.so")
  message(FATAL_ERROR "No libraries of ${kestrin_architecture} in ${CMAKE_SYSROOT}: "
    "scripts/other-machines ${kestrin_architecture} puts them there")
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_LIBRARY_ARCHITECTURE ${kestrin_multiarch})

# Packages are for that architecture.
set(KESTRIN_DEBIAN_ARCHITECTURE ${kestrin_architecture})
