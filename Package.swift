// swift-tools-version: 5.9
// The library for applications on Apple's systems, from its sources: docs/apple.md. CMakeLists.txt is what the
// project itself is built with; a test holds that both compile the same files.
import PackageDescription

let package = Package(
  name: "KestrinBLESDK",
  // What of C++20 these systems' libc++ lacks is not used.
  platforms: [.iOS(.v12), .macOS(.v10_14)],
  products: [
    .library(name: "KestrinBLESDK", targets: ["KestrinBLESDK"]),
    // For code in C++ only.
    .library(name: "KestrinSimulatedRadio", targets: ["KestrinSimulatedRadio"]),
  ],
  targets: [
    // In a folder of its own, where a link leads to the sources: their headers are included by the folder's name.
    .target(
      name: "KestrinCore",
      path: "packaging/swift/core",
      exclude: ["KestrinBLESDK/CMakeLists.txt"],
      sources: ["KestrinBLESDK"],
      publicHeadersPath: ".",
      cxxSettings: [
        .define("KESTRIN_VERSION_NUMBER", to: "1.0"),
        .define("KESTRIN_VERSION_MAJOR", to: "1"),
      ],
      linkerSettings: [.linkedLibrary("m", .when(platforms: [.linux]))]),
    .target(
      name: "KestrinSimulatedRadio",
      dependencies: ["KestrinCore"],
      path: "radios/simulated",
      exclude: ["CMakeLists.txt"],
      publicHeadersPath: "include"),
    .target(
      name: "KestrinCoreBluetoothRadio",
      dependencies: ["KestrinCore"],
      path: "radios/corebluetooth",
      exclude: ["CMakeLists.txt"],
      publicHeadersPath: "include",
      linkerSettings: [.linkedFramework("CoreBluetooth"), .linkedFramework("Foundation")]),
    .target(
      name: "KestrinBLESDK",
      dependencies: ["KestrinCore", "KestrinCoreBluetoothRadio"],
      path: "bindings/objc",
      exclude: ["CMakeLists.txt"],
      resources: [.copy("PrivacyInfo.xcprivacy")],
      publicHeadersPath: "include",
      cxxSettings: [.headerSearchPath("../../radios/corebluetooth/src")],
      linkerSettings: [
        .linkedFramework("CoreBluetooth"), .linkedFramework("Foundation"),
        .linkedFramework("UIKit", .when(platforms: [.iOS])),
      ]),
  ],
  cxxLanguageStandard: .cxx20)
