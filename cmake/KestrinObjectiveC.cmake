# What compiles and links Objective-C++. On Apple's systems that is the system's own, with automatic
# reference counting, which the Swift package manager has always on. Elsewhere it is GNUstep's Foundation on
# gcc's runtime, for tests only: that runtime has neither automatic reference counting nor weak references.

# Called in each folder that has Objective-C++. gcc's own Objective-C++ has no blocks, no literals and no
# loop over a collection, so the compiler is clang everywhere.
macro(kestrin_find_objective_cxx)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "The radio on CoreBluetooth needs clang: CMAKE_CXX_COMPILER is "
      "${CMAKE_CXX_COMPILER_ID}. The preset apple-standin has it")
  endif()
  if(NOT CMAKE_OBJCXX_COMPILER)
    set(CMAKE_OBJCXX_COMPILER ${CMAKE_CXX_COMPILER})
  endif()
  if(CMAKE_CXX_COMPILER_LAUNCHER AND NOT CMAKE_OBJCXX_COMPILER_LAUNCHER)
    set(CMAKE_OBJCXX_COMPILER_LAUNCHER ${CMAKE_CXX_COMPILER_LAUNCHER})
  endif()
  enable_language(OBJCXX)
  if(NOT APPLE AND NOT TARGET kestrin_gnustep)
    kestrin_find_gnustep()
  endif()
endmacro()

# GNUstep's Foundation as the target kestrin_gnustep.
function(kestrin_find_gnustep)
  find_path(KESTRIN_GNUSTEP_HEADERS Foundation/Foundation.h PATH_SUFFIXES GNUstep)
  find_library(KESTRIN_GNUSTEP_LIBRARY gnustep-base)
  find_path(KESTRIN_BLOCKS_HEADERS Block.h)
  find_library(KESTRIN_BLOCKS_LIBRARY BlocksRuntime)
  # The runtime's headers lie among gcc's own, and its library beside them.
  file(GLOB runtimes /usr/lib/gcc/*/*/include/objc/objc.h)
  list(SORT runtimes COMPARE NATURAL)
  foreach(each IN ITEMS GNUSTEP_HEADERS GNUSTEP_LIBRARY BLOCKS_HEADERS BLOCKS_LIBRARY)
    if(NOT KESTRIN_${each})
      set(runtimes "")
    endif()
  endforeach()
  if(NOT runtimes)
    message(FATAL_ERROR "The tests of the radio on CoreBluetooth need GNUstep's base library, gcc's "
      "Objective-C runtime and the blocks runtime: libgnustep-base-dev, libobjc-12-dev (Debian 13: "
      "libobjc-14-dev) and libblocksruntime-dev. -DKESTRIN_WITH_COREBLUETOOTH=OFF builds without them")
  endif()
  list(GET runtimes -1 runtime)
  cmake_path(GET runtime PARENT_PATH runtime)
  cmake_path(GET runtime PARENT_PATH runtime)
  cmake_path(GET runtime PARENT_PATH runtime_library)
  add_library(kestrin_gnustep INTERFACE)
  target_include_directories(kestrin_gnustep SYSTEM INTERFACE
    ${PROJECT_SOURCE_DIR}/tests/corebluetooth/gnustep ${KESTRIN_GNUSTEP_HEADERS} ${KESTRIN_BLOCKS_HEADERS})
  target_compile_options(kestrin_gnustep INTERFACE
    "$<$<COMPILE_LANGUAGE:OBJCXX>:-fobjc-runtime=gcc;-fblocks;-fobjc-exceptions;-fconstant-string-class=NSConstantString;-idirafter;${runtime}>")
  target_compile_definitions(kestrin_gnustep INTERFACE
    $<$<COMPILE_LANGUAGE:OBJCXX>:GNUSTEP GNUSTEP_BASE_LIBRARY=1 GNU_RUNTIME=1 _NATIVE_OBJC_EXCEPTIONS>)
  target_link_libraries(kestrin_gnustep INTERFACE
    ${KESTRIN_GNUSTEP_LIBRARY} ${runtime_library}/libobjc.so ${KESTRIN_BLOCKS_LIBRARY})
endfunction()

# Called for each target that has Objective-C++, on top of what every target gets.
function(kestrin_configure_objective_cxx target)
  set_target_properties(${target} PROPERTIES
    OBJCXX_STANDARD 20
    OBJCXX_STANDARD_REQUIRED ON
    OBJCXX_EXTENSIONS OFF
    OBJCXX_VISIBILITY_PRESET hidden
    UNITY_BUILD OFF)
  # A delegate is given its sender with every event.
  target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:OBJCXX>:-Wno-unused-parameter>)
  if(APPLE)
    target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:OBJCXX>:-fobjc-arc>)
  else()
    target_link_libraries(${target} PUBLIC kestrin_gnustep)
  endif()
endfunction()
