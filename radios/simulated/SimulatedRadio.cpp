#include "kestrin/simulated/SimulatedRadio.h"

#include <utility>

#include "CentralManager.h"
#include "Device.h"
#include "RadioCore.h"

namespace kestrin::simulated {

SimulatedRadio::SimulatedRadio(std::weak_ptr<RunLoop> mainRunLoop, const Options& options)
    : core_(std::make_shared<RadioCore>(std::move(mainRunLoop), options)) {}

SimulatedRadio::~SimulatedRadio() = default;

std::shared_ptr<VirtualPeripheral> SimulatedRadio::addReader(std::string name, ReaderFamily family,
                                                             std::optional<GattLayout> layout) {
  AttributeServer server(layout ? std::move(*layout) : readerLayout(family), family);
  return std::make_shared<VirtualPeripheral>(
      Device::make(core_, std::move(name), std::move(server), {readerService(family)}));
}

std::shared_ptr<VirtualPeripheral> SimulatedRadio::addPeripheral(std::optional<std::string> name,
                                                                 GattLayout layout) {
  AttributeServer server(std::move(layout), std::nullopt);
  return std::make_shared<VirtualPeripheral>(
      Device::make(core_, std::move(name), std::move(server), {}));
}

void SimulatedRadio::simulateState(CBManagerState state) { core_->setState(state); }

void SimulatedRadio::simulateAdvertisement(const std::shared_ptr<VirtualPeripheral>& peripheral) {
  if (peripheral) peripheral->simulateAdvertisement();
}

std::shared_ptr<CBCentralManager> SimulatedRadio::initWithDelegate_queue(
    std::weak_ptr<CBCentralManagerDelegate> delegate, std::shared_ptr<RunLoop> queue) {
  if (queue && queue != core_->mainRunLoop()) {
    return makeUnsupportedCentralManager(std::move(delegate), *queue);
  }
  auto central = std::make_shared<CentralManager>(core_, std::move(delegate));
  core_->addCentral(central);
  central->postFirstState();
  return central;
}

std::string SimulatedRadio::stateReason() const {
  switch (core_->state()) {
    case CBManagerState::poweredOn:
      return {};
    case CBManagerState::unknown:
      return "the simulated radio's state is not known; simulate the state powered on";
    case CBManagerState::resetting:
      return "the simulated radio is resetting; simulate the state powered on";
    case CBManagerState::unsupported:
      return "the simulated radio plays one that is not supported; simulate the state powered on";
    case CBManagerState::unauthorized:
      return "the simulated radio plays one that may not be used; simulate the state powered on";
    case CBManagerState::poweredOff:
      return "the simulated radio is switched off; simulate the state powered on";
  }
  return "the simulated radio is in the state " +
         std::to_string(static_cast<std::int64_t>(core_->state())) +
         ", which means nothing here; simulate the state powered on";
}

}  // namespace kestrin::simulated
