#include "CentralManager.h"

#include <utility>

#include "Numbering.h"
#include "RadioCore.h"

namespace kestrin::bluez {

CentralManager::CentralManager(std::shared_ptr<Session> session,
                               std::weak_ptr<CBCentralManagerDelegate> delegate)
    : id_(nextId()), session_(std::move(session)), delegate_(std::move(delegate)) {}

CentralManager::~CentralManager() {
  session_->post([id = id_](RadioCore& core) { core.removeCentral(id); });
}

std::shared_ptr<Peripheral> CentralManager::ours(
    const std::shared_ptr<CBPeripheral>& peripheral) const {
  auto mine = std::dynamic_pointer_cast<Peripheral>(peripheral);
  return mine && mine->bus() == session_->bus() ? mine : nullptr;
}

void CentralManager::scanForPeripheralsWithServices_options(
    const std::optional<std::vector<CBUUID>>& services, const std::optional<CBScanOptions>&) {
  if (state_ != CBManagerState::poweredOn) return;
  scan_ = ++lastScan_;
  session_->post(
      [id = id_, number = *scan_, services](RadioCore& core) { core.scan(id, number, services); });
}

void CentralManager::stopScan() {
  scan_.reset();
  session_->post([id = id_](RadioCore& core) { core.stopScan(id); });
}

void CentralManager::connectPeripheral_options(const std::shared_ptr<CBPeripheral>& peripheral,
                                               const std::optional<CBConnectOptions>&) {
  auto device = ours(peripheral);
  if (!device) return;
  session_->post(
      [id = id_, device = std::move(device)](RadioCore& core) { core.connect(id, device); });
}

void CentralManager::cancelPeripheralConnection(const std::shared_ptr<CBPeripheral>& peripheral) {
  const auto device = ours(peripheral);
  if (!device) return;
  session_->post([id = id_, path = device->path()](RadioCore& core) { core.cancel(id, path); });
}

void CentralManager::deliverState(CBManagerState state) {
  state_ = state;
  if (state != CBManagerState::poweredOn) scan_.reset();
  const auto delegate = delegate_.lock();
  if (delegate) delegate->centralManagerDidUpdateState(shared_from_this());
}

void CentralManager::deliverSighting(std::uint64_t scan,
                                     const std::shared_ptr<Peripheral>& peripheral,
                                     const CBAdvertisementData& data, int rssi) {
  if (scan_ != scan) return;
  peripheral->setName(data.localName);
  const auto delegate = delegate_.lock();
  if (!delegate) return;
  delegate->centralManager_didDiscoverPeripheral_advertisementData_RSSI(shared_from_this(),
                                                                        peripheral, data, rssi);
}

}  // namespace kestrin::bluez
