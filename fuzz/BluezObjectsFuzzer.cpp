// Fuzzes what the real radio makes of the daemon's messages: property maps with any properties of
// any type, on any object, in any order. Beside the radio's own tree runs a plainer account of
// what the messages said.
//
// Input: steps, each a kind and what it needs.
#include <limits>
#include <set>

#include "BusLibrary.h"
#include "Conversions.h"
#include "Errors.h"
#include "ObjectTree.h"
#include "fuzz/Fuzzing.h"

namespace kestrin::fuzz {
namespace {

using namespace bluez;

constexpr std::size_t kMostSteps = 60;

constexpr std::array kPaths{"/org/bluez/hci0",
                            "/org/bluez/hci1",
                            "/org/bluez/hci10",
                            "/org/bluez/hci0/dev_C0_DE_00_00_00_01",
                            "/org/bluez/hci0/dev_C0_DE_00_00_00_02",
                            "/org/bluez/hci0/dev_",
                            "/org/bluez/hci0/dev_C0_DE_00_00_00_01/service000a",
                            "/org/bluez/hci0/dev_C0_DE_00_00_00_01/service0009",
                            "/org/bluez/hci0/dev_C0_DE_00_00_00_01/service",
                            "/org/bluez/hci0/dev_C0_DE_00_00_00_01/service000a/char000b",
                            "/org/bluez/hci0/dev_C0_DE_00_00_00_01/service000a/char000f",
                            "/org/bluez/hci0/dev_C0_DE_00_00_00_01/service000a/char00010000",
                            "/org/bluez/hci0/dev_C0_DE_00_00_00_02/service0001",
                            "/org/bluez/hci0/dev_C0_DE_00_00_00_02/service0001/char0002",
                            "/"};
constexpr std::array kInterfaces{"org.bluez.Adapter1", "org.bluez.Device1",
                                 "org.bluez.GattService1", "org.bluez.GattCharacteristic1",
                                 "org.bluez.Media1"};
constexpr std::array kProperties{
    "Powered", "Address", "Name",      "RSSI",  "UUIDs", "Connected", "ServicesResolved",
    "UUID",    "Flags",   "Notifying", "Value", "Alias", "Class",     "Discovering"};
constexpr std::array kTexts{"FFF1",
                            "180a",
                            "ba821000-3b5b-4654-85fe-e998b123adea",
                            "0000fff2-0000-1000-8000-00805f9b34fb",
                            "no-uuid",
                            "",
                            "KVR-0417",
                            "notify",
                            "write",
                            "write-without-response",
                            "read",
                            "extended-properties"};

template <class List>
std::string pick(const List& list, ByteSource& input) {
  return list[input.below(list.size())];
}

std::string takeText(ByteSource& input) {
  if (input.flag()) return pick(kTexts, input);
  std::string text = textOf(input.take(input.u8() & 0x1F));
  // What is not ASCII may not be UTF-8, and such a text cannot be put on the bus.
  for (char& c : text) c = static_cast<char>(c & 0x7F);
  std::erase(text, '\0');
  return text;
}

std::vector<std::string> takeTexts(ByteSource& input) {
  std::vector<std::string> texts;
  for (std::size_t count = input.below(5); count > 0; --count) texts.push_back(takeText(input));
  return texts;
}

sdbus::Variant takeVariant(ByteSource& input) {
  switch (input.below(10)) {
    case 0:
      return sdbus::Variant(input.flag());
    case 1:
      return sdbus::Variant(static_cast<std::int16_t>(input.u16()));
    case 2:
    case 3:
      return sdbus::Variant(takeText(input));
    case 4:
    case 5:
      return sdbus::Variant(takeTexts(input));
    case 6: {
      const ByteView bytes = input.block();
      return sdbus::Variant(Bytes(bytes.begin(), bytes.end()));
    }
    case 7:
      return sdbus::Variant(static_cast<std::uint32_t>(input.u16()));
    case 8:
      return sdbus::Variant(std::map<std::string, std::string>{{takeText(input), takeText(input)}});
    default:
      return {};
  }
}

PropertyMap takeProperties(ByteSource& input) {
  PropertyMap properties;
  for (std::size_t count = input.below(6); count > 0; --count) {
    const std::string name = pick(kProperties, input);
    properties[name] = takeVariant(input);
  }
  return properties;
}

InterfaceMap takeInterfaces(ByteSource& input) {
  InterfaceMap interfaces;
  for (std::size_t count = input.below(4); count > 0; --count) {
    const std::string name = pick(kInterfaces, input);
    interfaces[name] = takeProperties(input);
  }
  return interfaces;
}

ObjectMap takeObjects(ByteSource& input) {
  ObjectMap objects;
  for (std::size_t count = input.below(5); count > 0; --count) {
    const std::string path = pick(kPaths, input);
    objects[sdbus::ObjectPath(path)] = takeInterfaces(input);
  }
  return objects;
}

/// The objects that there must be, as pairs of path and interface, and the devices' names.
class Account {
 public:
  void add(const std::string& path, const InterfaceMap& interfaces) {
    for (const auto& [interface, properties] : interfaces) {
      there_.insert({path, interface});
      if (interface == kInterfaces[1]) takeName(path, properties);
    }
  }
  void change(const std::string& path, const std::string& interface, const PropertyMap& changed,
              const std::vector<std::string>& invalidated) {
    if (interface != kInterfaces[1] || !has(path, 1)) return;
    if (std::ranges::find(invalidated, "Name") != invalidated.end()) names_.erase(path);
    takeName(path, changed);
  }
  void remove(const std::string& path, const std::vector<std::string>& interfaces) {
    for (const auto& interface : interfaces) there_.erase({path, interface});
    if (!has(path, 1)) names_.erase(path);
  }
  void removeBelow(const std::string& device) {
    std::erase_if(there_, [&](const auto& each) {
      return each.first.starts_with(device + "/") &&
             (each.second == kInterfaces[2] || each.second == kInterfaces[3]);
    });
  }
  void clear() { *this = {}; }

  void check(const ObjectTree& tree) const {
    for (const std::string path : kPaths) {
      require((tree.adapter(path) != nullptr) == has(path, 0), "an adapter is there or not");
      require((tree.device(path) != nullptr) == has(path, 1), "a device is there or not");
      require((tree.service(path) != nullptr) == has(path, 2), "a service is there or not");
      require((tree.characteristic(path) != nullptr) == has(path, 3), "a characteristic likewise");
      checkDevice(tree, path);
      checkOrder(tree.characteristicsOf(path), path);
    }
  }

 private:
  [[nodiscard]] bool has(const std::string& path, std::size_t interface) const {
    return there_.contains({path, kInterfaces[interface]});
  }
  void takeName(const std::string& path, const PropertyMap& properties) {
    const auto found = properties.find("Name");
    if (found == properties.end() || found->second.isEmpty()) return;
    if (typeIn(found->second) != "s") return;
    names_[path] = found->second.get<std::string>();
  }
  void checkDevice(const ObjectTree& tree, const std::string& path) const {
    checkOrder(tree.servicesOf(path), path);
    const DeviceObject* const device = tree.device(path);
    if (device == nullptr) return;
    const auto known = names_.find(path);
    require(device->name == (known == names_.end() ? std::nullopt : std::optional(known->second)),
            "a device has the name that was said last");
  }
  static void checkOrder(const std::vector<std::string>& paths, const std::string& parent) {
    require(std::ranges::is_sorted(paths, handleOrder), "attributes come in handle order");
    for (const auto& path : paths) {
      require(parentPath(path) == parent, "an attribute belongs to what holds it");
    }
  }

  std::set<std::pair<std::string, std::string>> there_;
  std::map<std::string, std::string> names_;
};

void step(ByteSource& input, ObjectTree& tree, Account& account) {
  const std::string path = pick(kPaths, input);
  switch (input.below(6)) {
    case 0: {
      const auto objects = takeObjects(input);
      tree.replace(objects);
      account.clear();
      for (const auto& [each, interfaces] : objects) account.add(each, interfaces);
      break;
    }
    case 1: {
      const auto objects = takeObjects(input);
      tree.replaceServices(path, objects);
      account.removeBelow(path);
      for (const auto& [each, interfaces] : objects) {
        if (each.starts_with(path + "/")) account.add(each, interfaces);
      }
      break;
    }
    case 2: {
      const auto interfaces = takeInterfaces(input);
      const auto news = tree.add(path, interfaces);
      require(news.size() == interfaces.size() - interfaces.count(kInterfaces[4]),
              "each interface that counts is news");
      account.add(path, interfaces);
      break;
    }
    case 3: {
      const std::vector<std::string> interfaces{pick(kInterfaces, input)};
      tree.remove(path, interfaces);
      account.remove(path, interfaces);
      break;
    }
    default: {
      const std::string interface = pick(kInterfaces, input);
      const auto changed = takeProperties(input);
      const auto invalidated =
          input.flag() ? std::vector<std::string>{pick(kProperties, input)} : takeTexts(input);
      tree.change(path, interface, changed, invalidated);
      account.change(path, interface, changed, invalidated);
      break;
    }
  }
}

void convertTexts(ByteSource& input) {
  const CallError error{takeText(input), takeText(input)};
  require(!errorOf(error).localizedDescription().empty(), "an error has a text");
  isRefusal(error);
  const std::string path = takeText(input);
  require(path.ends_with(lastElement(path)) && path.starts_with(parentPath(path)),
          "a path's parts are in it");
  if (const auto handle = handleOfPath(path)) {
    require(path.find("service") != std::string::npos || path.find("char") != std::string::npos,
            "only attributes have handles");
  }
  addressOfPath(path);
  require(propertiesOfFlags(takeTexts(input)) <= 0x7F, "flags become the bits that are known");
}

void choose(ByteSource& input, const ObjectTree& tree) {
  const bool named = input.flag();
  const std::string wanted = takeText(input);
  const std::string chosen =
      chooseAdapter(tree.adapters(), named ? std::optional(wanted) : std::nullopt,
                    pick(kPaths, input), input.flag());
  if (chosen.empty()) {
    require(named || tree.adapters().empty(), "where there is an adapter, one is chosen");
    return;
  }
  require(tree.adapter(chosen) != nullptr, "what is chosen is there");
  require(!named || lastElement(chosen) == wanted, "what is chosen is what was asked for");
}

}  // namespace
}  // namespace kestrin::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kestrin::fuzz;
  ByteSource input({data, size});
  ObjectTree tree;
  Account account;
  for (std::size_t i = 0; i < kMostSteps && !input.empty(); ++i) {
    step(input, tree, account);
    account.check(tree);
  }
  convertTexts(input);
  choose(input, tree);
  return 0;
}
