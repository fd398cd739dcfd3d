# How this project makes its targets: one place for language level, warnings, visibility and
# sanitizers.

find_package(Threads REQUIRED)

# A newer compiler warns about more, which must not keep a user from building: only who works on this
# project asks for it.
function(kestrin_refuse_warnings target)
  if(KESTRIN_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

# Warnings, language level and sanitizers of every target of this project.
function(kestrin_configure target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    POSITION_INDEPENDENT_CODE ON
    # Half of what a file costs to compile is in what it includes. For whole builds; scripts/lint
    # compiles each file on its own.
    UNITY_BUILD ${KESTRIN_JOIN_FILES}
    UNITY_BUILD_BATCH_SIZE 12)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor
    -Wold-style-cast -Woverloaded-virtual -Wcast-align -Wunused -Wnull-dereference
    -Wdouble-promotion -Wformat=2 -Wimplicit-fallthrough)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # g++ 12 takes the standard library's own "text" + string for an overlapping copy, and the
    # inside of an absent std::optional for a variable that is read before it is set.
    target_compile_options(${target} PRIVATE -Wno-restrict -Wno-maybe-uninitialized)
    # Nobody replaces single functions of these libraries, so calls within one need no detour and
    # may be inlined, as clang does by itself.
    target_compile_options(${target} PRIVATE -fno-semantic-interposition)
  endif()
  kestrin_refuse_warnings(${target})
  if(KESTRIN_SANITIZE)
    target_compile_options(${target} PRIVATE
      -fsanitize=${KESTRIN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(${target} PUBLIC -fsanitize=${KESTRIN_SANITIZE})
  endif()
endfunction()

# What is delivered stops at an overrun instead of going on, and has no table of functions that could
# be overwritten. Not under a sanitizer, which watches over more, and not for tests. Whoever compiles a
# file with -O0 says -U_FORTIFY_SOURCE too: the C library checks optimised code only.
function(kestrin_harden target)
  if(KESTRIN_SANITIZE)
    return()
  endif()
  target_compile_options(${target} PRIVATE -fstack-protector-strong
    "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
  # Apple's linkers have no such options.
  if(NOT APPLE)
    target_link_options(${target} PRIVATE -Wl,-z,relro -Wl,-z,now)
  endif()
endfunction()

# A program says by itself what ThreadSanitizer is not to report in it.
function(kestrin_spare_others target)
  if(KESTRIN_SANITIZE MATCHES "thread")
    target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tests/support/ThreadSanitizer.cpp)
  endif()
endfunction()

# kestrin_add_library(NAME [STATIC] SOURCES ... [LINK_PUBLIC ...] [LINK_PRIVATE ...])
# The alias is KestrinBLESDK::NAME.
function(kestrin_add_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "STATIC" "" "SOURCES;LINK_PUBLIC;LINK_PRIVATE")
  set(kind "")
  if(arg_STATIC)
    set(kind STATIC)
  endif()
  add_library(${name} ${kind} ${arg_SOURCES})
  add_library(KestrinBLESDK::${name} ALIAS ${name})
  kestrin_configure(${name})
  kestrin_harden(${name})
  target_link_libraries(${name} PUBLIC ${arg_LINK_PUBLIC} PRIVATE ${arg_LINK_PRIVATE})
  if(NOT KESTRIN_SANITIZE AND NOT APPLE)
    # A library that forgets to name what it needs must not build. Apple's linkers always refuse it.
    target_link_options(${name} PRIVATE -Wl,--no-undefined -Wl,--as-needed)
  endif()
  # What is promised of C++ is sources: programs are compiled again for each minor version, and those of
  # another one do not find this library.
  set_target_properties(${name} PROPERTIES
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
endfunction()

# kestrin_add_executable(NAME SOURCES ... [LINK ...])
function(kestrin_add_executable name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LINK")
  add_executable(${name} ${arg_SOURCES})
  kestrin_configure(${name})
  kestrin_harden(${name})
  target_link_libraries(${name} PRIVATE ${arg_LINK})
  kestrin_spare_others(${name})
endfunction()

# What nearly every test includes, compiled once: the test framework is most of what a test file
# costs to compile. Files still include what they use; scripts/lint compiles them without this.
function(kestrin_add_test_headers)
  add_library(test_headers OBJECT ${PROJECT_SOURCE_DIR}/tests/support/TestHeaders.cpp)
  kestrin_configure_test(test_headers)
  target_link_libraries(test_headers PRIVATE GTest::gtest)
  target_precompile_headers(test_headers PRIVATE
    <gtest/gtest.h> <algorithm> <chrono> <functional> <map> <memory> <optional> <random> <string>
    <thread> <vector>)
endfunction()

# kestrin_configure_test(TARGET [OPTIMIZED])
# Test code is compiled for compile time, not for speed: there is much of it and it runs briefly.
function(kestrin_configure_test target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "OPTIMIZED" "" "")
  kestrin_configure(${target})
  # The same code model for executables and object files, since they share compiled headers.
  set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE OFF)
  target_compile_options(${target} PRIVATE -fPIE)
  if(NOT arg_OPTIMIZED)
    target_compile_options(${target} PRIVATE -O0)
  endif()
endfunction()

# kestrin_add_test(NAME SOURCES ... [LINK ...] [LABELS ...] [DEFINITIONS ...] [OPTIMIZED]
#                  [OWN_HEADERS])
# One GoogleTest executable, which is one suite of the test run. Labels: `threads` marks what the
# ThreadSanitizer run needs. OPTIMIZED: for what runs long. OWN_HEADERS: the caller says which
# headers are compiled once for it.
function(kestrin_add_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "OPTIMIZED;OWN_HEADERS" ""
    "SOURCES;LINK;LABELS;DEFINITIONS")
  add_executable(${name} ${arg_SOURCES})
  kestrin_spare_others(${name})
  target_link_libraries(${name} PRIVATE ${arg_LINK} GTest::gtest GTest::gtest_main)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  if(arg_OPTIMIZED)
    kestrin_configure_test(${name} OPTIMIZED)
  else()
    kestrin_configure_test(${name})
  endif()
  if(arg_DEFINITIONS)
    target_compile_definitions(${name} PRIVATE ${arg_DEFINITIONS})
  endif()
  if(NOT arg_OPTIMIZED AND NOT arg_OWN_HEADERS AND NOT arg_DEFINITIONS)
    target_precompile_headers(${name} REUSE_FROM test_headers)
  endif()
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
  # A suite that runs no test has failed: GoogleTest itself would call it a success.
  add_test(NAME ${name} COMMAND ${name} --gtest_brief=1)
  set_tests_properties(${name} PROPERTIES
    TIMEOUT 300 LABELS "${arg_LABELS}" FAIL_REGULAR_EXPRESSION "0 tests from 0 test suites")
endfunction()

# The bus library of the real radio, as the target kestrin_bus_library. Called in each folder that
# uses it. Its headers do not say their version, so the package does (radios/bluez/src/BusLibrary.h).
macro(kestrin_find_bus_library)
  find_package(sdbus-c++ REQUIRED)
  if(NOT sdbus-c++_VERSION_MAJOR MATCHES "^[12]$" OR sdbus-c++_VERSION VERSION_LESS 1.2)
    message(FATAL_ERROR "The real radio needs sdbus-c++ 1.2 or newer, or 2: the version here is "
      "${sdbus-c++_VERSION}. -DKESTRIN_WITH_BLUEZ=OFF builds without it")
  endif()
  if(NOT TARGET kestrin_bus_library)
    add_library(kestrin_bus_library INTERFACE)
    set_target_properties(kestrin_bus_library PROPERTIES KESTRIN_MAJOR ${sdbus-c++_VERSION_MAJOR})
    target_compile_definitions(kestrin_bus_library INTERFACE
      KESTRIN_SDBUS_MAJOR=${sdbus-c++_VERSION_MAJOR})
    target_include_directories(kestrin_bus_library INTERFACE ${PROJECT_SOURCE_DIR}/radios/bluez/src)
    target_link_libraries(kestrin_bus_library INTERFACE SDBusCpp::sdbus-c++)
  endif()
endmacro()

# A room that is being built up takes part as soon as it has a CMakeLists.txt.
function(kestrin_add_room folder)
  if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/CMakeLists.txt)
    add_subdirectory(${folder})
  endif()
endfunction()
