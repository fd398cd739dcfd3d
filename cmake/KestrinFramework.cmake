# KestrinBLESDK.framework: several of this project's libraries in one binary, with what the build of an
# application needs of it. A build makes it for one system; scripts/xcframework puts those of several together.

set(KESTRIN_BUNDLE_IDENTIFIER "org.kestrin.KestrinBLESDK" CACHE STRING
  "What tells the framework for Apple's systems from all others")

# Info.plist at `file`: each platform has its own words for the oldest system.
function(kestrin_write_bundle_information file)
  if(KESTRIN_APPLE_TARGET MATCHES "(ios|macos)([0-9.]+)")
    set(oldest ${CMAKE_MATCH_2})
  elseif(CMAKE_OSX_DEPLOYMENT_TARGET)
    set(oldest ${CMAKE_OSX_DEPLOYMENT_TARGET})
  else()
    message(FATAL_ERROR "Say the oldest system that the framework is for: -DCMAKE_OSX_DEPLOYMENT_TARGET=12.0 "
      "for iOS, 10.14 for macOS")
  endif()
  set(KESTRIN_BUNDLE_PLATFORM MacOSX)
  set(KESTRIN_BUNDLE_SYSTEM "  <key>LSMinimumSystemVersion</key>\n  <string>${oldest}</string>")
  if(CMAKE_SYSTEM_NAME STREQUAL "iOS")
    string(TOLOWER "${CMAKE_OSX_SYSROOT}" sdk)
    set(KESTRIN_BUNDLE_PLATFORM iPhoneOS)
    if(sdk MATCHES "simulator")
      set(KESTRIN_BUNDLE_PLATFORM iPhoneSimulator)
    endif()
    # The families are telephones and tablets.
    string(CONCAT KESTRIN_BUNDLE_SYSTEM
      "  <key>MinimumOSVersion</key>\n  <string>${oldest}</string>\n"
      "  <key>UIDeviceFamily</key>\n  <array>\n    <integer>1</integer>\n    <integer>2</integer>\n  </array>")
  endif()
  configure_file(${PROJECT_SOURCE_DIR}/packaging/apple/Info.plist.in ${file} @ONLY)
endfunction()

# kestrin_add_framework(NAME SOURCES ... WITH LIBRARY ...): the framework of these sources, of those of the
# libraries, and of the headers in include/KestrinBLESDK.
function(kestrin_add_framework name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;WITH")
  set(information ${CMAKE_CURRENT_BINARY_DIR}/Info.plist)
  kestrin_write_bundle_information(${information})
  set(module ${PROJECT_SOURCE_DIR}/packaging/apple/module.modulemap)
  set(privacy ${CMAKE_CURRENT_SOURCE_DIR}/PrivacyInfo.xcprivacy)
  file(GLOB headers CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/include/KestrinBLESDK/*.h)
  add_library(${name} SHARED ${arg_SOURCES} ${headers} ${module} ${privacy})
  add_library(KestrinBLESDK::${name} ALIAS ${name})
  kestrin_configure(${name})
  kestrin_harden(${name})
  foreach(library IN LISTS arg_WITH)
    target_sources(${name} PRIVATE $<TARGET_OBJECTS:${library}>)
    target_include_directories(${name} PRIVATE $<TARGET_PROPERTY:${library},INTERFACE_INCLUDE_DIRECTORIES>)
  endforeach()
  target_include_directories(${name} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/include)
  target_link_libraries(${name} PRIVATE
    Threads::Threads "-framework CoreBluetooth" "-framework Foundation")
  set_source_files_properties(${module} PROPERTIES MACOSX_PACKAGE_LOCATION Modules)
  set_target_properties(${name} PROPERTIES
    OUTPUT_NAME KestrinBLESDK
    FRAMEWORK ON
    FRAMEWORK_VERSION A
    MACOSX_FRAMEWORK_INFO_PLIST ${information}
    PUBLIC_HEADER "${headers}"
    RESOURCE ${privacy}
    # The application that brings it says where it is.
    INSTALL_NAME_DIR "@rpath"
    BUILD_WITH_INSTALL_NAME_DIR ON
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
  if(CMAKE_SYSTEM_NAME STREQUAL "iOS")
    target_link_libraries(${name} PRIVATE "-framework UIKit")
  else()
    # On macOS a framework has a folder for each version, and links to what is in the newest one.
    add_custom_command(TARGET ${name} POST_BUILD VERBATIM
      COMMAND ${CMAKE_COMMAND} -E create_symlink Versions/Current/Modules
        $<TARGET_BUNDLE_DIR:${name}>/Modules)
  endif()
endfunction()
