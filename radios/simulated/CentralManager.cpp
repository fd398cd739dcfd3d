#include "CentralManager.h"

#include <algorithm>
#include <utility>

#include "Device.h"
#include "Errors.h"

namespace kestrin::simulated {

CentralManager::CentralManager(std::shared_ptr<RadioCore> core,
                               std::weak_ptr<CBCentralManagerDelegate> delegate)
    : core_(std::move(core)), id_(core_->nextCentralId()), delegate_(std::move(delegate)) {}

CentralManager::~CentralManager() { core_->letGo(id_); }

// State.

void CentralManager::reportState(CBManagerState state) {
  state_ = state;
  if (state != CBManagerState::poweredOn) scan_.reset();
  const auto delegate = delegate_.lock();
  if (delegate) delegate->centralManagerDidUpdateState(shared_from_this());
}

void CentralManager::postFirstState() {
  core_->post([weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    // It says what is so now; the changes up to now need no report of their own.
    self->changesReported_ = self->core_->stateChanges();
    self->reportState(self->core_->state());
  });
}

void CentralManager::postState(CBManagerState state, std::uint64_t change) {
  scan_.reset();
  core_->post([weak = weak_from_this(), state, change] {
    const auto self = weak.lock();
    if (!self || change <= self->changesReported_) return;
    self->changesReported_ = change;
    self->reportState(state);
  });
}

// Scanning.

void CentralManager::scanForPeripheralsWithServices_options(
    const std::optional<std::vector<CBUUID>>& services,
    const std::optional<CBScanOptions>& /*options*/) {
  if (state_ != CBManagerState::poweredOn || !core_->isPoweredOn()) return;
  scan_ = std::make_shared<Scan>(Scan{.services = services, .reported = {}});
  for (const auto& device : core_->devices()) listenFor(device);
}

void CentralManager::listenFor(const std::shared_ptr<Device>& device) {
  if (!scan_ || !device->isAdvertising()) return;
  const Range<Time> interval{Time::zero(), core_->options().advertisingInterval};
  core_->later(core_->random().between(interval), device,
               [weak = weak_from_this(), scan = std::weak_ptr(scan_)](RadioCore&, Device& heard) {
                 const auto self = weak.lock();
                 if (!self || scan.expired() || !heard.isAdvertising()) return;
                 self->hear(heard, Advertisement::complete, Report::changes);
               });
}

void CentralManager::postHearing(const std::shared_ptr<Device>& device,
                                 Advertisement advertisement) {
  if (!scan_ || !device->isInRange()) return;
  core_->later(Time::zero(), device,
               [weak = weak_from_this(), scan = std::weak_ptr(scan_), advertisement](
                   RadioCore&, Device& heard) {
                 const auto self = weak.lock();
                 if (!self || scan.expired() || !heard.isInRange()) return;
                 self->hear(heard, advertisement, Report::always);
               });
}

void CentralManager::hear(Device& device, Advertisement advertisement, Report report) {
  if (scan_->services) {
    const auto& advertised = device.advertisedServices();
    const bool wanted =
        std::any_of(advertised.begin(), advertised.end(),
                    [this](const CBUUID& service) { return isWanted(scan_->services, service); });
    if (!wanted) return;
  }
  CBAdvertisementData data{.localName = std::nullopt, .serviceUUIDs = device.advertisedServices()};
  if (advertisement == Advertisement::complete) data.localName = device.advertisedName();
  if (data.localName) device.peripheral()->hearName(*data.localName);
  const auto name = device.peripheral()->name();
  const auto known = scan_->reported.find(&device);
  const bool news = known == scan_->reported.end() || known->second != name;
  scan_->reported.insert_or_assign(&device, name);
  const auto delegate = delegate_.lock();
  if (!delegate || (!news && report == Report::changes)) return;
  delegate->centralManager_didDiscoverPeripheral_advertisementData_RSSI(
      shared_from_this(), device.peripheral(), data,
      core_->random().between(core_->options().signalStrength));
}

// Links.

std::shared_ptr<Device> CentralManager::deviceOf(const std::shared_ptr<CBPeripheral>& peripheral) {
  const auto known = std::dynamic_pointer_cast<SimulatedPeripheral>(peripheral);
  if (!known) return nullptr;
  auto device = known->device().lock();
  return device && device->core() == core_ ? device : nullptr;
}

void CentralManager::connectPeripheral_options(const std::shared_ptr<CBPeripheral>& peripheral,
                                               const std::optional<CBConnectOptions>& /*options*/) {
  if (const auto device = deviceOf(peripheral)) device->connect(*core_, shared_from_this());
}

void CentralManager::cancelPeripheralConnection(const std::shared_ptr<CBPeripheral>& peripheral) {
  if (const auto device = deviceOf(peripheral)) device->cancel(*core_, shared_from_this());
}

void CentralManager::reportConnection(Device& device) {
  const auto delegate = delegate_.lock();
  if (!delegate) return;
  delegate->centralManager_didConnectPeripheral(shared_from_this(), device.peripheral());
}

void CentralManager::postDisconnection(Device& device, const std::optional<NSError>& error,
                                       const std::shared_ptr<Link>& ended,
                                       std::vector<std::weak_ptr<CentralManager>> next) {
  if (ended) ended->setAwaitsReport(true);
  core_->later(Time::zero(), device.shared_from_this(),
               [weak = weak_from_this(), error, ended, next = std::move(next)](
                   RadioCore& core, Device& disconnected) {
                 const auto self = weak.lock();
                 if (!self) return;
                 const bool last = std::all_of(next.begin(), next.end(), [](const auto& central) {
                   return central.expired();
                 });
                 if (ended && last) {
                   core.carryOutSubmitted();
                   ended->setAwaitsReport(false);
                   for (const auto& answer : ended->takeOwed())
                     answer(error.value_or(operationCancelled()));
                 }
                 const auto delegate = self->delegate_.lock();
                 if (!delegate) return;
                 delegate->centralManager_didDisconnectPeripheral_error(
                     self, disconnected.peripheral(), error);
               });
}

// A queue that is not the main run loop.

namespace {

class UnsupportedCentralManager final : public CBCentralManager {
 public:
  [[nodiscard]] CBManagerState state() const override { return state_; }
  void scanForPeripheralsWithServices_options(const std::optional<std::vector<CBUUID>>&,
                                              const std::optional<CBScanOptions>&) override {}
  void stopScan() override {}
  void connectPeripheral_options(const std::shared_ptr<CBPeripheral>&,
                                 const std::optional<CBConnectOptions>&) override {}
  void cancelPeripheralConnection(const std::shared_ptr<CBPeripheral>&) override {}
  void becomeUnsupported() { state_ = CBManagerState::unsupported; }

 private:
  CBManagerState state_ = CBManagerState::unknown;
};

}  // namespace

std::shared_ptr<CBCentralManager> makeUnsupportedCentralManager(
    std::weak_ptr<CBCentralManagerDelegate> delegate, RunLoop& queue) {
  auto manager = std::make_shared<UnsupportedCentralManager>();
  queue.post([weak = std::weak_ptr(manager), delegate = std::move(delegate)] {
    const auto self = weak.lock();
    if (!self) return;
    self->becomeUnsupported();
    if (const auto receiver = delegate.lock()) receiver->centralManagerDidUpdateState(self);
  });
  return manager;
}

}  // namespace kestrin::simulated
