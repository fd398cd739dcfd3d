#include "kestrin/simulated/VirtualPeripheral.h"

#include <utility>

#include "CentralManager.h"
#include "Device.h"
#include "Errors.h"

namespace kestrin::simulated {
namespace {

void advertise(const std::shared_ptr<Device>& device, Advertisement advertisement) {
  const auto core = device->core();
  if (!core) return;
  for (const auto& central : core->centrals()) central->postHearing(device, advertisement);
}

}  // namespace

VirtualPeripheral::VirtualPeripheral(std::shared_ptr<Device> device) : device_(std::move(device)) {}
VirtualPeripheral::~VirtualPeripheral() = default;

std::string VirtualPeripheral::identifier() const { return device_->peripheral()->identifier(); }

std::shared_ptr<CBPeripheral> VirtualPeripheral::peripheral() const {
  return device_->peripheral();
}

void VirtualPeripheral::simulateVanishing() {
  if (const auto core = device_->core()) device_->vanish(*core);
}

void VirtualPeripheral::simulateAppearing() {
  if (const auto core = device_->core()) device_->appear(*core);
}

void VirtualPeripheral::simulateName(std::optional<std::string> name) {
  if (const auto core = device_->core()) device_->rename(*core, std::move(name));
}

void VirtualPeripheral::simulateAdvertisement() { advertise(device_, Advertisement::complete); }

void VirtualPeripheral::simulateNamelessAdvertisement() {
  advertise(device_, Advertisement::nameless);
}

void VirtualPeripheral::simulateLinkLoss() {
  if (const auto core = device_->core()) device_->loseLink(*core, peripheralDisconnected());
}

void VirtualPeripheral::simulateConnectionNeverCompleting(bool never) {
  if (const auto core = device_->core()) device_->setNeverCompleting(*core, never);
}

void VirtualPeripheral::simulateFailingConnections(std::size_t attempts) {
  device_->setFailing(attempts);
}

void VirtualPeripheral::simulateServiceDiscoveryError(std::optional<NSError> error) {
  device_->server().faults.serviceDiscovery = std::move(error);
}

void VirtualPeripheral::simulateCharacteristicDiscoveryError(std::optional<NSError> error) {
  device_->server().faults.characteristicDiscovery = std::move(error);
}

void VirtualPeripheral::simulateMissingService(const CBUUID& service, bool missing) {
  device_->server().setMissing(service, missing);
}

void VirtualPeripheral::simulateMissingCharacteristic(const CBUUID& characteristic, bool missing) {
  device_->server().setMissing(characteristic, missing);
}

void VirtualPeripheral::simulateProperties(const CBUUID& characteristic,
                                           CBCharacteristicProperties properties) {
  device_->server().setProperties(characteristic, properties);
}

void VirtualPeripheral::simulateSubscriptionError(std::optional<NSError> error) {
  device_->server().faults.subscription = std::move(error);
}

void VirtualPeripheral::simulateReadError(std::optional<NSError> error) {
  device_->server().faults.read = std::move(error);
}

void VirtualPeripheral::simulateWriteError(std::optional<NSError> error) {
  device_->server().faults.write = std::move(error);
}

void VirtualPeripheral::simulateValue(const CBUUID& characteristic, const NSData& value) {
  device_->server().setValue(characteristic, value);
}

bool VirtualPeripheral::simulateNotification(const CBUUID& characteristic, const NSData& value) {
  const auto core = device_->core();
  return core && device_->notify(*core, characteristic, value);
}

void VirtualPeripheral::simulateSilence(bool silent) { device_->server().faults.silent = silent; }

void VirtualPeripheral::setScript(ReaderScript script) {
  device_->server().setScript(std::move(script));
}

bool VirtualPeripheral::connected() const { return device_->isLinked(); }

std::vector<CBUUID> VirtualPeripheral::subscriptions() const { return device_->subscriptions(); }

std::vector<ReceivedWrite> VirtualPeripheral::writes() const { return device_->server().writes(); }

std::size_t VirtualPeripheral::refusedWrites() const { return device_->server().refusedWrites(); }

std::size_t VirtualPeripheral::connectionAttempts() const { return device_->attempts(); }

}  // namespace kestrin::simulated
