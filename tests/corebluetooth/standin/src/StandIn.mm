#include "StandIn.h"

#include <utility>

#include "Parts.h"

namespace standin {

void use(std::shared_ptr<kestrin::Radio> radio, std::weak_ptr<kestrin::RunLoop> loop,
         const Habits& habits) {
  // What is alive outlives the radio that it came from.
  const auto managers = state().managers;
  const int peripherals = state().livePeripherals;
  state() = State{.radio = std::move(radio),
                  .loop = std::move(loop),
                  .habits = habits,
                  .misuses = {},
                  .requests = {},
                  .raisesAt = {},
                  .managerOptions = {},
                  .managers = managers,
                  .livePeripherals = peripherals,
                  .seen = {}};
}

std::vector<std::string> misuses() { return state().misuses; }
std::vector<std::string> requests() { return state().requests; }
void sightAgain(const std::string& name) {
  @autoreleasepool {
    for (CBCentralManager* manager : std::set(state().managers)) {
      for (const auto& [identifier, peripheral] : std::map(manager->parts->peripherals)) {
        [[manager delegate] centralManager:manager
                     didDiscoverPeripheral:peripheral
                         advertisementData:@{CBAdvertisementDataLocalNameKey : string(name)}
                                      RSSI:@(-50)];
      }
    }
  }
}
void forgetDevices() { state().seen.clear(); }
std::string managerOptions() { return state().managerOptions; }
int liveManagers() { return static_cast<int>(state().managers.size()); }
int livePeripherals() { return state().livePeripherals; }
void raiseAt(const std::optional<std::string>& selector) { state().raisesAt = selector; }

}  // namespace standin
