// The usual way over the message bus: every value is a change of the characteristic's property.
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "bench/realstack/BusReader.h"
#include "bench/realstack/Tally.h"

int main() {
  using namespace kestrin::bench;
  const auto bus = sdbus::createSystemBusConnection();
  const auto characteristic = kestrin::bluez::makeProxy(*bus, kDaemon, connectToReader(*bus));
  characteristic->uponSignal("PropertiesChanged")
      .onInterface("org.freedesktop.DBus.Properties")
      .call([](const std::string&, const std::map<std::string, sdbus::Variant>& changed,
               const std::vector<std::string>&) {
        const auto value = changed.find("Value");
        if (value == changed.end()) return;
        const auto bytes = value->second.get<std::vector<std::uint8_t>>();
        tally().add(bytes.data(), bytes.size());
      });
  kestrin::bluez::finishSignals(*characteristic);
  characteristic->callMethod("StartNotify").onInterface(kCharacteristic);
  tally().up();
  bus->enterEventLoop();
}
