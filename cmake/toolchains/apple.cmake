# An Apple system, with Debian's clang and lld and no SDK: what is built is to be looked at, not run.
# scripts/apple has laid out the folder that stands for an SDK and says:
#   KESTRIN_APPLE_TARGET  the target, for example arm64-apple-ios12.0
#   KESTRIN_APPLE_SDK     that folder
#   KESTRIN_APPLE_LIBCXX  libc++'s headers, which say what an older system does not have
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES
  KESTRIN_APPLE_TARGET KESTRIN_APPLE_SDK KESTRIN_APPLE_LIBCXX)
if(KESTRIN_APPLE_TARGET MATCHES "ios")
  set(CMAKE_SYSTEM_NAME iOS)
else()
  set(CMAKE_SYSTEM_NAME Darwin)
endif()
# CMake knows of @rpath from the version of the Mac that it runs on, after it has read this file.
set(CMAKE_USER_MAKE_RULES_OVERRIDE ${CMAKE_CURRENT_LIST_DIR}/apple-rpath.cmake)
string(REGEX MATCH "^[^-]+" CMAKE_SYSTEM_PROCESSOR ${KESTRIN_APPLE_TARGET})
set(CMAKE_OSX_SYSROOT ${KESTRIN_APPLE_SDK})
set(llvm /usr/lib/llvm-19/bin)
set(CMAKE_C_COMPILER ${llvm}/clang)
foreach(language IN ITEMS CXX OBJCXX)
  set(CMAKE_${language}_COMPILER ${llvm}/clang++)
  # clang prefers its own libc++, which says nothing of systems.
  set(CMAKE_${language}_FLAGS_INIT
    "-nostdinc++ -isystem ${KESTRIN_APPLE_LIBCXX} -Werror=unguarded-availability")
endforeach()
foreach(language IN ITEMS C CXX OBJCXX)
  set(CMAKE_${language}_COMPILER_TARGET ${KESTRIN_APPLE_TARGET})
endforeach()
set(CMAKE_AR ${llvm}/llvm-ar CACHE FILEPATH "")
set(CMAKE_RANLIB ${llvm}/llvm-ranlib CACHE FILEPATH "")
set(CMAKE_INSTALL_NAME_TOOL ${llvm}/llvm-install-name-tool CACHE FILEPATH "")
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
# There is nothing to link with: scripts/apple looks at what stays undefined.
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-fuse-ld=lld -nostdlib -Wl,-undefined,dynamic_lookup")
