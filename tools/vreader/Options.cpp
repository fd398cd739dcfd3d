#include "tools/vreader/Options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <string_view>
#include <utility>

#include "KestrinBLESDK/platform/NSLog.h"
#include "tools/NearestWord.h"
#include "tools/vreader/Att.h"
#include "tools/vreader/Numbers.h"
#include "tools/vreader/Orders.h"

namespace kestrin::vreader {

namespace {

constexpr const char* kDescription =
    "A virtual Bluetooth LE radio with virtual readers in range, for the Linux Bluetooth stack.\n"
    "It needs root and a kernel with the module hci_vhci (modprobe hci_vhci).";

constexpr std::string_view kDeviceHelp =
    "A device is NAME[,KEY=VALUE...]. An empty NAME advertises no name. Keys:\n"
    "  id=ID                 what orders and event lines call it (1, 2, ... by default, readers\n"
    "                        first)\n"
    "  family=standard|q62t  a reader's family (q62t for a NAME that begins with KVR-Q62T)\n"
    "  address=XX:XX:XX:XX:XX:XX and address-type=public|random\n"
    "                        (C0:DE:00:00:00:01, ... and random by default)\n"
    "  gap-name=NAME         the name that is read over a link (Virtual by default)\n"
    "  tx=MASK               the properties of the characteristic that a reader gets its commands\n"
    "                        on: the sum of 0x02 (read), 0x04 (write without response), 0x08\n"
    "                        (write), 0x10 (notify) and 0x20 (indicate)\n"
    "  reply-size=BYTES      how long the notifications are that a reader's reply leaves in (20)\n"
    "Without any device there are KVR-0001, KVR-Q62T-0001 and Lamp, which is not a reader.\n\n";

constexpr std::string_view kFamilyPrefix = "KVR-Q62T";

const std::vector<std::string>& deviceKeys() {
  static const std::vector<std::string> keys{"id",       "family", "address",   "address-type",
                                             "gap-name", "tx",     "reply-size"};
  return keys;
}

std::string suggestion(const std::string& typed, const std::vector<std::string>& known) {
  const std::string meant = tools::nearestWord(typed, known);
  return meant.empty() ? "" : "; did you mean " + meant + "?";
}

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::string_view left = text;
  for (;;) {
    const auto at = left.find(separator);
    parts.emplace_back(left.substr(0, at));
    if (at == std::string_view::npos) return parts;
    left.remove_prefix(at + 1);
  }
}

// The keys of a device as they were given, with what else has to be known to judge them.
struct DeviceText {
  DeviceSettings& settings;
  bool isReader = false;
  std::optional<std::string> address;
  DeviceAddress::Type addressType = DeviceAddress::Type::randomDevice;
};

std::string setFamily(DeviceText& device, const std::string& value) {
  if (!device.isReader) return "what is not a reader has no family";
  if (value == "standard") {
    device.settings.family = simulated::ReaderFamily::standard;
  } else if (value == "q62t") {
    device.settings.family = simulated::ReaderFamily::kvrQ62T;
  } else {
    return "there is no family \"" + value + "\"; say standard or q62t";
  }
  return {};
}

std::string setTxProperties(DeviceText& device, const std::string& value) {
  if (!device.isReader) return "what is not a reader has no such characteristic";
  constexpr unsigned kMost = 0x3E;
  const auto mask = numberFrom<unsigned>(value);
  if (!mask || (*mask & ~kMost) != 0) return "a mask is a sum of 0x02, 0x04, 0x08, 0x10 and 0x20";
  device.settings.txProperties = *mask;
  return {};
}

std::string setReplySize(DeviceText& device, const std::string& value) {
  if (!device.isReader) return "what is not a reader does not reply";
  const auto size = numberFrom<std::size_t>(value);
  if (!size || *size == 0 || *size > att::kLargestValue) {
    return "a reply is cut into 1 to " + std::to_string(att::kLargestValue) + " bytes";
  }
  device.settings.replySize = *size;
  return {};
}

// Takes one "key=value"; returns what is wrong with it, if anything.
std::string setKey(DeviceText& device, const std::string& text) {
  const auto equals = text.find('=');
  const std::string key = text.substr(0, equals);
  const std::string value = equals == std::string::npos ? "" : text.substr(equals + 1);
  if (key == "family") return setFamily(device, value);
  if (key == "tx") return setTxProperties(device, value);
  if (key == "reply-size") return setReplySize(device, value);
  if (key == "id") {
    const bool usable = !value.empty() && value.find_first_of(" \t") == std::string::npos;
    if (!usable) return "an id is one word";
    device.settings.id = value;
  } else if (key == "gap-name") {
    device.settings.gapName = value;
  } else if (key == "address") {
    device.address = value;
  } else if (key == "address-type") {
    if (value != "public" && value != "random") return "an address type is public or random";
    device.addressType =
        value == "public" ? DeviceAddress::Type::publicDevice : DeviceAddress::Type::randomDevice;
  } else {
    return "there is no key \"" + key + "\"" + suggestion(key, deviceKeys());
  }
  return {};
}

// Whether two devices share what has to tell them apart; then what to say about it.
std::string conflict(const std::vector<DeviceSettings>& devices) {
  for (auto device = devices.begin(); device != devices.end(); ++device) {
    for (auto other = devices.begin(); other != device; ++other) {
      if (other->id == device->id) return "two devices have the id " + device->id;
      if (other->address == device->address) {
        return "two devices have the address " + device->address.text();
      }
    }
  }
  return {};
}

/// What was typed and is not expected says more than what is missing because of it.
std::string whatIsWrong(const CLI::App& app, const CLI::ParseError& error) {
  const std::vector<std::string> unexpected = app.remaining();
  if (unexpected.empty()) return error.what();
  const std::string& typed = unexpected.front();
  if (!typed.starts_with('-')) return "'" + typed + "' is not expected here";
  std::vector<std::string> known;
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) known.push_back("--" + name);
  }
  const std::string option = typed.substr(0, typed.find('='));
  return "'" + option + "' is not an option of kestrin-vreader" + suggestion(option, known);
}

CommandLine wrongUsage(const std::string& text) {
  return {std::nullopt,
          "kestrin-vreader: " + StandardErrorLogSink::escaped(text) +
              " (kestrin-vreader --help tells more)\n",
          2};
}

}  // namespace

std::optional<DeviceSettings> deviceFromText(const std::string& text, bool isReader,
                                             std::uint16_t number, std::string& problem) {
  const std::vector<std::string> parts = split(text, ',');
  DeviceSettings settings;
  settings.id = std::to_string(number);
  settings.address = DeviceAddress::staticRandom(number);
  if (!parts.front().empty()) settings.advertisedName = parts.front();
  if (isReader) {
    settings.family = parts.front().starts_with(kFamilyPrefix) ? simulated::ReaderFamily::kvrQ62T
                                                               : simulated::ReaderFamily::standard;
  }
  DeviceText device{settings, isReader, std::nullopt};
  for (std::size_t i = 1; i < parts.size(); ++i) {
    problem = setKey(device, parts[i]);
    if (!problem.empty()) return std::nullopt;
  }
  if (device.address) {
    const auto address = DeviceAddress::fromText(*device.address, device.addressType);
    if (!address) {
      problem = "\"" + *device.address + "\" is not an address; say it as C0:DE:00:00:00:01";
      return std::nullopt;
    }
    settings.address = *address;
  }
  settings.address.type = device.addressType;
  return settings;
}

CommandLine parseCommandLine(int argumentCount, const char* const* arguments) {
  Options options;
  options.address = DeviceAddress::staticRandom(0);
  options.address.type = DeviceAddress::Type::publicDevice;
  std::vector<std::string> readers;
  std::vector<std::string> nonReaders;
  std::string orders;
  bool tellsNotifications = false;

  CLI::App app(kDescription, "kestrin-vreader");
  app.add_option("--reader", readers, "a reader, see below; may be repeated")
      ->type_name("DEVICE")
      ->expected(1)
      ->take_all();
  app.add_option("--non-reader", nonReaders, "a peripheral that is not a reader; may be repeated")
      ->type_name("DEVICE")
      ->expected(1)
      ->take_all();
  app.add_option("--orders", orders,
                 "read orders from this named pipe, which is made when it is not there")
      ->type_name("PATH");
  app.add_option("--vhci", options.vhci, "the device file of virtual controllers")
      ->type_name("PATH")
      ->capture_default_str();
  app.add_option("--most-links", options.mostLinks,
                 "how many links the controller keeps at a time (any number)")
      ->type_name("NUMBER")
      ->check(CLI::Range(1, 1000));
  app.add_option("--air", options.air,
                 "how long what a reader sends is on the air: \"1M\" as on the 1 Mbit/s radio, or "
                 "\"none\", faster than any controller (1M)")
      ->type_name("1M|none")
      ->transform(CLI::CheckedTransformer(
          std::map<std::string, Air>{{"1M", Air::oneMegabit}, {"none", Air::none}}));
  app.add_flag("--tell-notifications", tellsNotifications,
               "print a line NOTIFY ID CHARACTERISTIC LENGTH HEX for every notification");
  app.footer(std::string(kDeviceHelp) + Orders::help());
  try {
    app.parse(argumentCount, arguments);
  } catch (const CLI::CallForHelp&) {
    return {std::nullopt, app.help(), 0};
  } catch (const CLI::ParseError& error) {
    return wrongUsage(whatIsWrong(app, error));
  }

  if (readers.empty() && nonReaders.empty()) {
    readers = {"KVR-0001", "KVR-Q62T-0001"};
    nonReaders = {"Lamp"};
  }
  const auto addAll = [&](const std::vector<std::string>& texts, bool isReader) -> std::string {
    for (const std::string& text : texts) {
      std::string problem;
      const auto number = static_cast<std::uint16_t>(options.devices.size() + 1);
      const auto device = deviceFromText(text, isReader, number, problem);
      if (!device) return std::string("device \"").append(text).append("\": ").append(problem);
      options.devices.push_back(*device);
      options.devices.back().tellsNotifications = tellsNotifications;
    }
    return {};
  };
  for (const auto& problem :
       {addAll(readers, true), addAll(nonReaders, false), conflict(options.devices)}) {
    if (!problem.empty()) return wrongUsage(problem);
  }
  if (!orders.empty()) options.orders = orders;
  return {options, {}, 0};
}

}  // namespace kestrin::vreader
