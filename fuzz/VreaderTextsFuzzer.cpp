// Fuzzes the texts that `kestrin-vreader` reads: its command line, with the devices on it, and
// orders to devices with and without a link.
//
// Input: a byte that picks the kind of text, then lines: arguments, or orders.
#include "fuzz/Fuzzing.h"
#include "fuzz/VirtualAir.h"
#include "tools/vreader/Options.h"
#include "tools/vreader/Orders.h"

namespace kestrin::fuzz {
namespace {

using vreader::CommandLine;

constexpr std::size_t kMostLines = 40;

std::vector<std::string> takeLines(ByteSource& input) {
  std::vector<std::string> lines;
  while (!input.empty() && lines.size() < kMostLines) {
    std::string& line = lines.emplace_back();
    for (char c = 0; !input.empty() && (c = static_cast<char>(input.u8())) != '\n';) {
      if (c != '\0') line += c;
    }
  }
  return lines;
}

void parseCommandLine(ByteSource input) {
  const auto arguments = takeLines(input);
  std::vector<const char*> pointers{"kestrin-vreader"};
  for (const auto& argument : arguments) pointers.push_back(argument.c_str());
  const CommandLine line =
      vreader::parseCommandLine(static_cast<int>(pointers.size()), pointers.data());
  if (!line.options) {
    require(line.exitStatus == 0 || line.exitStatus == 2, "it is help or wrong usage");
    require(!line.text.empty(), "what ends the program says why");
    return;
  }
  const auto& devices = line.options->devices;
  require(!devices.empty(), "there is a device");
  for (const auto& device : devices) {
    require(!device.id.empty() && device.id.find_first_of(" \t") == std::string::npos,
            "an id is one word");
    require(std::ranges::count(devices, device.id, &vreader::DeviceSettings::id) == 1,
            "an id names one device");
  }
}

/// Bursts are as long as they are asked for, so only short ones are tried.
bool takesLong(const std::string& order) {
  if (order.find("burst") == std::string::npos) return false;
  std::size_t digits = 0;
  for (const char c : order) {
    digits = std::isxdigit(static_cast<unsigned char>(c)) != 0 ? digits + 1 : 0;
    if (digits > 3) return true;
  }
  return false;
}

void carryOut(ByteSource input) {
  VirtualAir air;
  vreader::Orders orders(air.devices(), air.controller());
  for (const auto& order : takeLines(input)) {
    if (takesLong(order)) continue;
    if (order == "link") {
      air.linkAll();
      continue;
    }
    const auto outcome = orders.carryOut(order);
    require(outcome.done == outcome.reason.empty(),
            "an order is carried out, or it is said why not");
    air.pass(std::chrono::milliseconds(50));
  }
  air.checkThatItWorks();
}

}  // namespace
}  // namespace kestrin::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kestrin::fuzz;
  ByteSource input({data, size});
  if ((input.u8() & 1) == 0) {
    parseCommandLine(input);
  } else {
    carryOut(input);
  }
  return 0;
}
