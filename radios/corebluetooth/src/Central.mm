#include "Central.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "Guarded.h"

namespace kestrin::corebluetooth {
namespace {

using namespace std::chrono_literals;

constexpr Time kFirstPause = 500ms;
constexpr Time kLongestPause = 30s;
constexpr int kMostDoublings = 6;
// An end that was asked for and is not reported is looked for in the device's own state, so often.
constexpr Time kUntilLook = 2s;
constexpr int kMostLooks = 5;

// `CBErrorPeripheralDisconnected`
constexpr std::int64_t kDisconnected = 7;
NSError ended(const char* why) { return {CBErrorDomain, kDisconnected, why}; }

::KestrinFields* yes(::NSString* key) {
  return [::KestrinFields dictionaryWithObject:[::NSNumber numberWithBool:YES] forKey:key];
}

}  // namespace

Central::Central(std::shared_ptr<Core> core, std::weak_ptr<CBCentralManagerDelegate> delegate)
    : core_(std::move(core)),
      delegate_(std::move(delegate)),
      events_(Strong<::KestrinCentralEvents*>::adopt([[::KestrinCentralEvents alloc] init])) {
  events_.get()->owner = this;
  guarded("initWithDelegate:queue:options:", [this] {
    ::KestrinFields* const options =
        core_->options().showsPowerAlert ? yes(CBCentralManagerOptionShowPowerAlertKey) : nil;
    manager_ = Strong<::CBCentralManager*>::adopt(
        [[::CBCentralManager alloc] initWithDelegate:events_.get() queue:nil options:options]);
  });
}

Central::~Central() {
  events_.get()->owner = nullptr;
  if (core_->mainThread().hasLoop()) core_->mainThread().carryOutSubmitted();
  for (const auto& [peripheral, entry] : entries_) {
    if (entry.wasLinked) peripheral->release(this, std::nullopt);
  }
  guarded("the end of a central manager", [this] {
    if (works()) {
      for (const auto& each : withEntries()) {
        ::CBPeripheral* const device = deviceOf(*each);
        if (device != nil) [manager_.get() cancelPeripheralConnection:device];
      }
      if (scanning_) [manager_.get() stopScan];
    }
    [manager_.get() setDelegate:nil];
  });
}

bool Central::works() const { return state_ == CBManagerState::poweredOn; }

Central::Peripherals Central::withEntries() const {
  Peripherals all;
  for (const auto& [peripheral, entry] : entries_) all.push_back(peripheral);
  return all;
}

// State.

void Central::didUpdateState(CBManagerState state) {
  const auto self = shared_from_this();
  state_ = state;
  core_->setState(state);
  if (works()) {
    for (const auto& each : withEntries()) begin(each);
  } else {
    scanning_ = false;
    for (const auto& each : withEntries()) endWithThePower(each);
  }
  if (const auto delegate = delegate_.lock()) delegate->centralManagerDidUpdateState(self);
}

void Central::endWithThePower(const std::shared_ptr<Peripheral>& peripheral) {
  const auto entry = entries_.find(peripheral);
  if (entry == entries_.end()) return;
  switch (entry->second.stage) {
    case Stage::connecting:
      break;  // It waits for the power.
    case Stage::linked:
      end(peripheral, ended("Bluetooth is not powered on any more"));
      break;
    case Stage::cancelling:
      end(peripheral, std::nullopt);
      break;
  }
}

// Scanning.

void Central::scanForPeripheralsWithServices_options(
    const std::optional<std::vector<CBUUID>>& services,
    const std::optional<CBScanOptions>& /*options*/) {
  if (!works() || !core_->mainThread().hasLoop()) return;
  scanning_ = true;
  reported_.clear();
  // Every sighting is asked for, since a new name is to be reported; `didDiscover` drops the
  // others.
  guarded("scanForPeripheralsWithServices:options:", [&] {
    [manager_.get()
        scanForPeripheralsWithServices:uuids(services)
                               options:yes(CBCentralManagerScanOptionAllowDuplicatesKey)];
  });
}

void Central::stopScan() {
  if (!std::exchange(scanning_, false) || !core_->mainThread().hasLoop()) return;
  guarded("stopScan", [this] { [manager_.get() stopScan]; });
}

void Central::didDiscover(::CBPeripheral* device, const CBAdvertisementData& advertisement,
                          int rssi) {
  if (!scanning_) return;
  const auto self = shared_from_this();
  const auto peripheral = core_->peripheralOf(device);
  devices_[peripheral.get()] = Strong<::CBPeripheral*>(device);
  peripheral->setNewestDevice(device);
  if (advertisement.localName) peripheral->takeName(*advertisement.localName);
  const auto name = peripheral->name();
  const auto [place, isNew] = reported_.try_emplace(peripheral.get(), name);
  if (!isNew && place->second == name) return;
  place->second = name;
  if (const auto delegate = delegate_.lock()) {
    delegate->centralManager_didDiscoverPeripheral_advertisementData_RSSI(self, peripheral,
                                                                          advertisement, rssi);
  }
}

// Links.

::CBPeripheral* Central::deviceOf(const Peripheral& peripheral) const {
  const auto known = devices_.find(&peripheral);
  return known == devices_.end() ? nil : known->second.get();
}

::CBPeripheral* Central::findDeviceOf(const Peripheral& peripheral) {
  if (::CBPeripheral* const known = deviceOf(peripheral); known != nil) return known;
  // Another central manager saw it: this one needs an object of its own.
  const auto identifier = Strong<::NSUUID*>::adopt(
      [[::NSUUID alloc] initWithUUIDString:string(peripheral.identifier())]);
  if (identifier.get() == nil) return nil;
  ::CBPeripheral* const device = [[manager_.get()
      retrievePeripheralsWithIdentifiers:[::NSArray arrayWithObject:identifier.get()]] firstObject];
  if (device != nil) devices_[&peripheral] = Strong<::CBPeripheral*>(device);
  return device;
}

void Central::begin(const std::shared_ptr<Peripheral>& peripheral) {
  const auto entry = entries_.find(peripheral);
  if (entry == entries_.end() || entry->second.stage != Stage::connecting || !works()) return;
  bool begun = false;
  guarded("connectPeripheral:options:", [&] {
    ::CBPeripheral* const device = findDeviceOf(*peripheral);
    if (device == nil) return;
    [manager_.get() connectPeripheral:device options:nil];
    begun = true;
  });
  if (!begun) beginAfterFailure(peripheral);
}

void Central::beginAfterFailure(const std::shared_ptr<Peripheral>& peripheral) {
  const int failures = std::min(entries_.at(peripheral).failures++, kMostDoublings);
  const Time pause = std::min(kLongestPause, kFirstPause * (1 << failures));
  core_->mainThread().later(pause, [weak = weak_from_this(), peripheral] {
    if (const auto self = weak.lock()) self->begin(peripheral);
  });
}

void Central::connectPeripheral_options(const std::shared_ptr<CBPeripheral>& peripheral,
                                        const std::optional<CBConnectOptions>& /*options*/) {
  const auto own = core_->own(peripheral);
  if (!own || !core_->mainThread().hasLoop()) return;
  const auto [entry, isNew] = entries_.try_emplace(own);
  if (isNew) {
    begin(own);
  } else if (entry->second.stage == Stage::cancelling) {
    entry->second.again = true;
  }
}

void Central::cancelPeripheralConnection(const std::shared_ptr<CBPeripheral>& peripheral) {
  const auto own = core_->own(peripheral);
  if (!own || !core_->mainThread().hasLoop()) return;
  core_->mainThread().carryOutSubmitted();
  const auto entry = entries_.find(own);
  if (entry == entries_.end()) return;
  entry->second.again = false;
  if (entry->second.stage == Stage::cancelling) return;
  entry->second.stage = Stage::cancelling;
  ::CBPeripheral* const device = deviceOf(*own);
  if (device != nil && works()) {
    guarded("cancelPeripheralConnection:",
            [&] { [manager_.get() cancelPeripheralConnection:device]; });
    endUnreported(own, kUntilLook, kMostLooks);
  } else {
    endUnreported(own, Time::zero(), 0);
  }
}

void Central::endUnreported(const std::shared_ptr<Peripheral>& peripheral, Time delay, int looks) {
  core_->mainThread().later(delay, [weak = weak_from_this(), peripheral, looks] {
    const auto self = weak.lock();
    if (!self) return;
    const auto entry = self->entries_.find(peripheral);
    if (entry == self->entries_.end() || entry->second.stage != Stage::cancelling) return;
    ::CBPeripheral* const device = self->deviceOf(*peripheral);
    if (looks > 0 && device != nil && [device state] != CBPeripheralStateDisconnected) {
      self->endUnreported(peripheral, kUntilLook, looks - 1);
    } else {
      self->end(peripheral, std::nullopt);
    }
  });
}

void Central::didConnect(::CBPeripheral* device) {
  const auto self = shared_from_this();
  const auto peripheral = core_->peripheralOf(device);
  const auto entry = entries_.find(peripheral);
  if (entry == entries_.end() || entry->second.stage == Stage::cancelling) {
    // Its cancellation came too late.
    guarded("cancelPeripheralConnection:",
            [&] { [manager_.get() cancelPeripheralConnection:device]; });
    return;
  }
  if (entry->second.stage == Stage::linked) return;
  entry->second.stage = Stage::linked;
  entry->second.wasLinked = true;
  peripheral->claim(this, device);
  if (const auto delegate = delegate_.lock()) {
    delegate->centralManager_didConnectPeripheral(self, peripheral);
  }
}

void Central::didEnd(::CBPeripheral* device, const std::optional<NSError>& error) {
  const auto self = shared_from_this();
  const auto peripheral = core_->peripheralOf(device);
  const auto entry = entries_.find(peripheral);
  if (entry == entries_.end()) return;
  switch (entry->second.stage) {
    case Stage::connecting:
      beginAfterFailure(peripheral);
      break;
    case Stage::linked:
      end(peripheral, error.value_or(ended("the link has ended")));
      break;
    case Stage::cancelling:
      end(peripheral, std::nullopt);
      break;
  }
}

void Central::end(const std::shared_ptr<Peripheral>& peripheral,
                  const std::optional<NSError>& error) {
  const auto self = shared_from_this();
  const auto entry = entries_.extract(peripheral);
  if (entry.mapped().wasLinked) {
    peripheral->release(this, error.value_or(ended("the link was cancelled")));
  }
  if (entry.mapped().again) {
    entries_.try_emplace(peripheral);
    core_->mainThread().post([weak = weak_from_this(), peripheral] {
      if (const auto central = weak.lock()) central->begin(peripheral);
    });
  }
  if (const auto delegate = delegate_.lock()) {
    delegate->centralManager_didDisconnectPeripheral_error(self, peripheral, error);
  }
}

}  // namespace kestrin::corebluetooth
