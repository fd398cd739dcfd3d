// The command line of kestrin-vreader: which devices there are, and where orders come from.
//
// Threads: plain values. Errors: wrong usage ends with a text that says what was wrong.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/vreader/DeviceAddress.h"
#include "tools/vreader/Link.h"
#include "tools/vreader/VirtualDevice.h"

namespace kestrin::vreader {

struct Options {
  std::vector<DeviceSettings> devices;
  /// The path of the pipe that orders are read from; absent: no orders.
  std::optional<std::string> orders;
  /// The path of the virtual controller's device file.
  std::string vhci = "/dev/vhci";
  /// The controller's own address.
  DeviceAddress address;
  /// The most links at a time; absent: no limit.
  std::optional<std::size_t> mostLinks;
  /// How long what a device sends is on the air.
  Air air = Air::oneMegabit;
};

/// What the command line came to.
struct CommandLine {
  /// Present when the program is to run.
  std::optional<Options> options;
  /// Else the text to print (help, or what was wrong) and the exit status, 0 or 2.
  std::string text;
  int exitStatus = 0;
};

CommandLine parseCommandLine(int argumentCount, const char* const* arguments);

/// Reads one device, "NAME[,key=value...]". `number` counts the devices from 1 and gives what is
/// not said: id and address. Absent when it is wrong; `problem` then says why.
std::optional<DeviceSettings> deviceFromText(const std::string& text, bool isReader,
                                             std::uint16_t number, std::string& problem);

}  // namespace kestrin::vreader
