#include "Peripheral.h"

#include <utility>

#include "Device.h"

namespace kestrin::simulated {

SimulatedPeripheral::SimulatedPeripheral(std::string identifier, std::weak_ptr<RadioCore> core,
                                         std::weak_ptr<Device> device)
    : identifier_(std::move(identifier)), core_(std::move(core)), device_(std::move(device)) {}

std::optional<std::string> SimulatedPeripheral::name() const {
  const std::scoped_lock lock(nameMutex_);
  return name_;
}

void SimulatedPeripheral::hearName(const std::string& name) {
  if (shown_) return;
  const std::scoped_lock lock(nameMutex_);
  name_ = name;
}

void SimulatedPeripheral::setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) {
  delegate_ = std::move(delegate);
}

std::optional<std::vector<std::shared_ptr<CBService>>> SimulatedPeripheral::services() const {
  if (!shown_) return std::nullopt;
  return shown_->shownServices();
}

void SimulatedPeripheral::hide(const std::shared_ptr<Link>& link) {
  if (shown_ == link) shown_.reset();
}

// Carries a request out if `link` is the device's link, or was until now and its end is still to be
// reported; what is asked of any other goes nowhere.
void SimulatedPeripheral::onLink(const std::weak_ptr<Link>& link, const LinkRequest& request) {
  const auto core = core_.lock();
  const auto device = device_.lock();
  const auto asked = link.lock();
  if (!core || !device || !asked) return;
  if (device->link() != asked && !asked->awaitsReport()) return;
  request(*core, device, *asked);
}

Link::Answer SimulatedPeripheral::answer(
    std::function<void(SimulatedPeripheral&, CBPeripheralDelegate*, const std::optional<NSError>&)>
        give) {
  return [weak = weak_from_this(), give = std::move(give)](const std::optional<NSError>& error) {
    if (const auto self = weak.lock()) give(*self, self->delegate_.lock().get(), error);
  };
}

void SimulatedPeripheral::discoverServices(const std::optional<std::vector<CBUUID>>& serviceUUIDs) {
  if (const auto core = core_.lock()) core->carryOutSubmitted();
  const std::weak_ptr<Link> weakLink = shown_;
  onLink(weakLink, [&](RadioCore& core, const std::shared_ptr<Device>& device, Link& link) {
    link.ask(
        core, device,
        [](RadioCore&, Device& asked, Link&) { return asked.server().faults.serviceDiscovery; },
        answer([weakLink, serviceUUIDs](SimulatedPeripheral& self, CBPeripheralDelegate* delegate,
                                        const std::optional<NSError>& error) {
          const auto answered = weakLink.lock();
          if (answered && !error) answered->show(serviceUUIDs);
          if (delegate) delegate->peripheral_didDiscoverServices(self.shared_from_this(), error);
        }));
  });
}

void SimulatedPeripheral::discoverCharacteristics_forService(
    const std::optional<std::vector<CBUUID>>& characteristicUUIDs,
    const std::shared_ptr<CBService>& service) {
  const auto asked = std::dynamic_pointer_cast<SimulatedService>(service);
  if (!asked) return;
  if (const auto core = core_.lock()) core->carryOutSubmitted();
  onLink(asked->link(), [&](RadioCore& core, const std::shared_ptr<Device>& device, Link& link) {
    link.ask(
        core, device,
        [](RadioCore&, Device& target, Link&) {
          return target.server().faults.characteristicDiscovery;
        },
        answer([asked, characteristicUUIDs](SimulatedPeripheral& self,
                                            CBPeripheralDelegate* delegate,
                                            const std::optional<NSError>& error) {
          if (!error) asked->show(characteristicUUIDs);
          if (delegate == nullptr) return;
          delegate->peripheral_didDiscoverCharacteristicsForService_error(self.shared_from_this(),
                                                                          asked, error);
        }));
  });
}

void SimulatedPeripheral::submit(const std::shared_ptr<CBCharacteristic>& characteristic,
                                 CharacteristicRequest request) {
  const auto asked = std::dynamic_pointer_cast<SimulatedCharacteristic>(characteristic);
  const auto core = core_.lock();
  if (!asked || !core) return;
  core->submit([weak = weak_from_this(), asked, request = std::move(request)] {
    const auto self = weak.lock();
    if (!self) return;
    self->onLink(asked->link(), [&](RadioCore& radio, const std::shared_ptr<Device>& device,
                                    Link& link) { request(radio, device, link, asked); });
  });
}

void SimulatedPeripheral::readValueForCharacteristic(
    const std::shared_ptr<CBCharacteristic>& characteristic) {
  submit(characteristic, [self = this](RadioCore& core, const std::shared_ptr<Device>& device,
                                       Link& link,
                                       const std::shared_ptr<SimulatedCharacteristic>& asked) {
    const auto value = std::make_shared<NSData>();
    link.ask(
        core, device,
        [asked, value](RadioCore&, Device& target, Link&) {
          return target.server().read(*asked, *value);
        },
        self->answer([asked, value](SimulatedPeripheral& peripheral, CBPeripheralDelegate* delegate,
                                    const std::optional<NSError>& error) {
          if (!error) return peripheral.takeValue(asked, *value);
          if (delegate == nullptr) return;
          delegate->peripheral_didUpdateValueForCharacteristic_error(peripheral.shared_from_this(),
                                                                     asked, error);
        }));
  });
}

void SimulatedPeripheral::setNotifyValue_forCharacteristic(
    bool enabled, const std::shared_ptr<CBCharacteristic>& characteristic) {
  submit(characteristic,
         [self = this, enabled](RadioCore& core, const std::shared_ptr<Device>& device, Link& link,
                                const std::shared_ptr<SimulatedCharacteristic>& asked) {
           link.ask(
               core, device,
               [asked, enabled](RadioCore&, Device& target, Link&) {
                 return target.server().subscribe(*asked, enabled);
               },
               self->answer([asked](SimulatedPeripheral& peripheral, CBPeripheralDelegate* delegate,
                                    const std::optional<NSError>& error) {
                 if (delegate == nullptr) return;
                 delegate->peripheral_didUpdateNotificationStateForCharacteristic_error(
                     peripheral.shared_from_this(), asked, error);
               }));
         });
}

void SimulatedPeripheral::writeValue_forCharacteristic_type(
    const std::optional<NSData>& value, const std::shared_ptr<CBCharacteristic>& characteristic,
    CBCharacteristicWriteType type) {
  if (!value) return;
  submit(characteristic, [value = *value, type](
                             RadioCore& core, const std::shared_ptr<Device>& device, Link& link,
                             const std::shared_ptr<SimulatedCharacteristic>& asked) {
    link.toDevice(core, device, [asked, value, type](RadioCore& radio, Device& target, Link&) {
      target.receive(radio, *asked, value, type);
    });
  });
}

void SimulatedPeripheral::takeValue(const std::shared_ptr<SimulatedCharacteristic>& characteristic,
                                    NSData value) {
  characteristic->setValue(std::move(value));
  const auto delegate = delegate_.lock();
  if (!delegate) return;
  delegate->peripheral_didUpdateValueForCharacteristic_error(shared_from_this(), characteristic,
                                                             std::nullopt);
}

}  // namespace kestrin::simulated
