# What `cmake --install` lays out: libraries, headers, package files for CMake and pkg-config, the
# commands with their manual pages and completions. Components, each of which is a Debian package:
# library, c, development, tools, and gateway and python where they are built.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(kestrin_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/KestrinBLESDK)

# What is installed may be moved as a whole, so files name each other relatively.
file(RELATIVE_PATH kestrin_pc_to_prefix
  /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" kestrin_pc_to_prefix "${kestrin_pc_to_prefix}")

# What pkg-config looks for besides, for a static library only: a shared one brings it, and whoever uses
# that need not have the development files of what is behind it.
set(kestrin_pc_bluez_needs "")
set(kestrin_pc_c_needs "")
if(TARGET KestrinBLESDK_bluez)
  # Whoever links it statically needs the same major version of the bus library.
  get_target_property(KESTRIN_SDBUS_MAJOR kestrin_bus_library KESTRIN_MAJOR)
  math(EXPR KESTRIN_SDBUS_NEXT_MAJOR "${KESTRIN_SDBUS_MAJOR} + 1")
endif()
if(NOT BUILD_SHARED_LIBS)
  set(kestrin_pc_c_needs "kestrinblesdk-simulated = ${PROJECT_VERSION}")
  if(TARGET KestrinBLESDK_bluez)
    string(APPEND kestrin_pc_c_needs " kestrinblesdk-bluez = ${PROJECT_VERSION}")
    set(kestrin_pc_bluez_needs
      "sdbus-c++ >= ${KESTRIN_SDBUS_MAJOR}, sdbus-c++ < ${KESTRIN_SDBUS_NEXT_MAJOR}")
  endif()
endif()

# kestrin_install_library(TARGET EXPORT_NAME COMPONENT)
# EXPORT_NAME.cmake is what find_package reads for it.
function(kestrin_install_library target export_name component)
  install(TARGETS ${target} EXPORT ${export_name}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${component} NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(EXPORT ${export_name}
    NAMESPACE KestrinBLESDK:: DESTINATION ${kestrin_package_dir} COMPONENT development)
endfunction()

# kestrin_install_pc(NAME): packaging/NAME.pc.in, where pkg-config looks for it.
function(kestrin_install_pc name)
  configure_file(${PROJECT_SOURCE_DIR}/packaging/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endfunction()

# kestrin_install_command(TARGET COMPONENT): the program, its manual page and its completions.
function(kestrin_install_command target component)
  install(TARGETS ${target} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT ${component})
  configure_file(${PROJECT_SOURCE_DIR}/packaging/man/${target}.1.in ${PROJECT_BINARY_DIR}/${target}.1
    @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${target}.1
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT ${component})
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/completions/${target}.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME ${target}
    COMPONENT ${component})
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/completions/_${target}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions COMPONENT ${component})
endfunction()

kestrin_install_library(KestrinBLESDK KestrinBLESDKTargets library)
kestrin_install_pc(kestrinblesdk)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/KestrinBLESDK DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  COMPONENT development
  FILES_MATCHING PATTERN "*.h" PATTERN link EXCLUDE PATTERN reader EXCLUDE
  PATTERN RcpFrmReader.h EXCLUDE PATTERN Trimming.h EXCLUDE
  PATTERN DescriptorWaker.h EXCLUDE PATTERN DescriptorWatches.h EXCLUDE
  PATTERN SignalPipe.h EXCLUDE PATTERN Recorder.h EXCLUDE PATTERN RecordedPeripheral.h EXCLUDE)
foreach(component IN ITEMS simulated bluez c)
  if(TARGET KestrinBLESDK_${component})
    set(in_package library)
    if(component STREQUAL "c")
      set(in_package c)
    endif()
    kestrin_install_library(KestrinBLESDK_${component} KestrinBLESDK_${component}Targets ${in_package})
    kestrin_install_pc(kestrinblesdk-${component})
    get_target_property(folder KestrinBLESDK_${component} SOURCE_DIR)
    install(DIRECTORY ${folder}/include/
      DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development FILES_MATCHING PATTERN "*.h")
  endif()
endforeach()

configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/packaging/KestrinBLESDKConfig.cmake.in
  ${PROJECT_BINARY_DIR}/KestrinBLESDKConfig.cmake
  INSTALL_DESTINATION ${kestrin_package_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KestrinBLESDKConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KestrinBLESDKConfig.cmake
  ${PROJECT_BINARY_DIR}/KestrinBLESDKConfigVersion.cmake
  DESTINATION ${kestrin_package_dir} COMPONENT development)

foreach(command IN ITEMS kestrin kestrin-vreader)
  if(TARGET ${command})
    kestrin_install_command(${command} tools)
  endif()
endforeach()

# Where Debian's Python looks for what a package has brought, below /usr, and for what the system's owner
# has, below /usr/local.
set(kestrin_components library c development tools)
if(TARGET kestrin-gateway)
  list(APPEND kestrin_components gateway)
  kestrin_install_command(kestrin-gateway gateway)
  configure_file(${PROJECT_SOURCE_DIR}/packaging/gateway/kestrin-gateway.service.in
    ${PROJECT_BINARY_DIR}/kestrin-gateway.service @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/kestrin-gateway.service
    DESTINATION lib/systemd/system COMPONENT gateway)
  # What the package copies to /etc. The folder for documents may be left out of a small system.
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/gateway/gateway.toml
    DESTINATION ${CMAKE_INSTALL_DATADIR}/kestrin-gateway COMPONENT gateway)
endif()
if(TARGET kestrin_python)
  list(APPEND kestrin_components python)
  foreach(fact IN ITEMS FILES PYTHON_MAJOR PYTHON_MINOR)
    get_target_property(kestrin_${fact} kestrin_python KESTRIN_${fact})
  endforeach()
  if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set(python_dir lib/python3/dist-packages)
  else()
    set(python_dir lib/python${kestrin_PYTHON_MAJOR}.${kestrin_PYTHON_MINOR}/dist-packages)
    file(RELATIVE_PATH libraries_from_python /${python_dir}/kestrinblesdk /${CMAKE_INSTALL_LIBDIR})
    set_target_properties(kestrin_python PROPERTIES INSTALL_RPATH "$ORIGIN/${libraries_from_python}")
  endif()
  install(TARGETS kestrin_python LIBRARY DESTINATION ${python_dir}/kestrinblesdk COMPONENT python)
  install(FILES ${kestrin_FILES} DESTINATION ${python_dir}/kestrinblesdk COMPONENT python)
endif()

foreach(component IN LISTS kestrin_components)
  set(name_python python3-kestrinblesdk)
  set(name_library libkestrinblesdk${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
  set(name_c libkestrinblesdk-c${PROJECT_VERSION_MAJOR})
  set(name_development libkestrinblesdk-dev)
  set(name_tools kestrin-tools)
  set(name_gateway kestrin-gateway)
  install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/SECURITY.md
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name_${component}} COMPONENT ${component})
endforeach()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs ${PROJECT_SOURCE_DIR}/examples
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libkestrinblesdk-dev COMPONENT development)
