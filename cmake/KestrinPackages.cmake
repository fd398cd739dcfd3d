# Debian packages, made with `cpack -G DEB` in a build folder that was configured with
# -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_LIBDIR=lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH).
#
# A package of libraries has the number in its name that its libraries have in theirs: that for C++ may be
# installed beside that of another minor version, and the one for C replaces its predecessor.
set(library_package libkestrinblesdk${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
set(c_package libkestrinblesdk-c${PROJECT_VERSION_MAJOR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kestrinblesdk)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "The KestrinBLESDK maintainers <maintainers@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL ${kestrin_components})
set(CPACK_DEB_COMPONENT_INSTALL ON)
if(KESTRIN_BUILT_IN)
  set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/RemoveLibraryPaths.cmake)
endif()
if(KESTRIN_DEBIAN_ARCHITECTURE)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${KESTRIN_DEBIAN_ARCHITECTURE})
endif()
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
# Which version of which library a program needs, by what it is linked with.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
# Its own library is not installed where packages are made.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(this_version "(= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
set(this_library "${library_package} ${this_version}")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${library_package})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION
  "client library for handheld RFID readers over Bluetooth LE
 Scans for readers, connects, sends command frames and hands back whole, checked ones. With a simulated
 radio, and with BlueZ as the real one.")

set(CPACK_DEBIAN_C_PACKAGE_NAME ${c_package})
set(CPACK_DEBIAN_C_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_C_PACKAGE_DEPENDS ${this_library})
set(CPACK_COMPONENT_C_DESCRIPTION
  "client library for handheld RFID readers over Bluetooth LE, for C
 Scans for readers, connects, sends command frames and hands back whole, checked ones, from programs in C
 and whatever calls C. They need not be compiled again for a later version.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkestrinblesdk-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${this_library}, ${c_package} ${this_version}")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
  "client library for handheld RFID readers over Bluetooth LE, development
 Headers, and the package files of CMake and pkg-config.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME kestrin-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION comm)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS ${this_library})
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS bluez)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
  "work a handheld RFID reader from the command line
 kestrin scans for readers, listens to one and sends it frames. kestrin-vreader puts virtual readers in
 range of the system's Bluetooth stack.")

if(TARGET kestrin-gateway)
  set(CPACK_DEBIAN_GATEWAY_PACKAGE_NAME kestrin-gateway)
  set(CPACK_DEBIAN_GATEWAY_PACKAGE_SECTION net)
  # The unit needs the group that comes with bluez.
  set(CPACK_DEBIAN_GATEWAY_PACKAGE_DEPENDS "${this_library}, adduser, bluez, init-system-helpers (>= 1.52)")
  set(CPACK_DEBIAN_GATEWAY_PACKAGE_RECOMMENDS ca-certificates)
  set(CPACK_DEBIAN_GATEWAY_PACKAGE_SUGGESTS mosquitto)
  set(CPACK_DEBIAN_GATEWAY_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/packaging/gateway/postinst ${PROJECT_SOURCE_DIR}/packaging/gateway/prerm
    ${PROJECT_SOURCE_DIR}/packaging/gateway/postrm)
  set(CPACK_COMPONENT_GATEWAY_DESCRIPTION
    "gateway between RFID readers and an MQTT broker
 Holds the handheld RFID readers of one machine over Bluetooth LE, keeps what they send safe on disk, and
 hands it to an MQTT broker, for a system behind it that wants every frame. Comes as a service.")
endif()

if(TARGET kestrin_python)
  # The module is for this version of Python only.
  math(EXPR next_minor "${kestrin_PYTHON_MINOR} + 1")
  set(this_python "python3 (>= ${kestrin_PYTHON_MAJOR}.${kestrin_PYTHON_MINOR})")
  set(next_python "python3 (<< ${kestrin_PYTHON_MAJOR}.${next_minor})")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-kestrinblesdk)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
  # What only a gateway's consumer needs.
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS python3-paho-mqtt)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "${this_library}, ${this_python}, ${next_python}")
  # Compiled Python comes with the package and goes with it.
  set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/packaging/python3/postinst ${PROJECT_SOURCE_DIR}/packaging/python3/prerm)
  set(CPACK_COMPONENT_PYTHON_DESCRIPTION
    "client library for handheld RFID readers over Bluetooth LE, for Python
 Scans for readers, connects, sends command frames and hands back whole, checked ones: with callbacks
 or with asyncio.")
endif()

include(CPack)
