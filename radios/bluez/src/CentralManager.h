// The application's side of a central manager.
//
// Threads: the main run loop; it may be destroyed on any thread.
// Lifetime: keeps its session; dropping it lets go of its links and attempts.
// Errors: told by events.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "CentralFront.h"
#include "Peripheral.h"
#include "Session.h"

namespace kestrin::bluez {

class CentralManager final : public CentralFront,
                             public std::enable_shared_from_this<CentralManager> {
 public:
  CentralManager(std::shared_ptr<Session> session,
                 std::weak_ptr<CBCentralManagerDelegate> delegate);
  ~CentralManager() override;
  CentralManager(const CentralManager&) = delete;
  CentralManager& operator=(const CentralManager&) = delete;

  [[nodiscard]] CBManagerState state() const override { return state_; }
  void scanForPeripheralsWithServices_options(const std::optional<std::vector<CBUUID>>& services,
                                              const std::optional<CBScanOptions>& options) override;
  void stopScan() override;
  void connectPeripheral_options(const std::shared_ptr<CBPeripheral>& peripheral,
                                 const std::optional<CBConnectOptions>& options) override;
  void cancelPeripheralConnection(const std::shared_ptr<CBPeripheral>& peripheral) override;

  [[nodiscard]] std::uint64_t id() const noexcept { return id_; }
  void deliverState(CBManagerState state) override;
  void deliverSighting(std::uint64_t scan, const std::shared_ptr<Peripheral>& peripheral,
                       const CBAdvertisementData& data, int rssi) override;

 private:
  [[nodiscard]] std::shared_ptr<Peripheral> ours(
      const std::shared_ptr<CBPeripheral>& peripheral) const;

  const std::uint64_t id_;
  const std::shared_ptr<Session> session_;
  const std::weak_ptr<CBCentralManagerDelegate> delegate_;
  CBManagerState state_ = CBManagerState::unknown;
  std::uint64_t lastScan_ = 0;
  std::optional<std::uint64_t> scan_;
};

}  // namespace kestrin::bluez
