#include "StandIn.h"

#include <utility>

#include "Parts.h"

namespace standin {

void use(std::shared_ptr<kestrin::Radio> radio, std::weak_ptr<kestrin::RunLoop> loop,
         const Habits& habits) {
  // What is alive outlives the radio that it came from.
  const int managers = state().liveManagers;
  const int peripherals = state().livePeripherals;
  state() = State{.radio = std::move(radio),
                  .loop = std::move(loop),
                  .habits = habits,
                  .misuses = {},
                  .requests = {},
                  .raisesAt = {},
                  .managerOptions = {},
                  .liveManagers = managers,
                  .livePeripherals = peripherals,
                  .seen = {}};
}

std::vector<std::string> misuses() { return state().misuses; }
std::vector<std::string> requests() { return state().requests; }
void forgetDevices() { state().seen.clear(); }
std::string managerOptions() { return state().managerOptions; }
int liveManagers() { return state().liveManagers; }
int livePeripherals() { return state().livePeripherals; }
void raiseAt(const std::optional<std::string>& selector) { state().raisesAt = selector; }

}  // namespace standin
