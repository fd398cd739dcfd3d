// A central manager over one of the system's.
//
// The system leaves open what this makes sure of: that a link which ends with the radio's power is
// reported, that the end of a cancelled attempt is, and that an attempt goes on after a failure,
// which the system may report as a failure or as a disconnection.
//
// Threads: the main thread's. Lifetime: as CBCentralManager.h says. Errors: as CBCentralManager.h
// says.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CentralEvents.h"
#include "Core.h"
#include "KestrinBLESDK/platform/CBCentralManager.h"
#include "Strong.h"

namespace kestrin::corebluetooth {

class Central final : public CBCentralManager,
                      private ManagerEvents,
                      public std::enable_shared_from_this<Central> {
 public:
  Central(std::shared_ptr<Core> core, std::weak_ptr<CBCentralManagerDelegate> delegate);
  ~Central() override;
  Central(const Central&) = delete;
  Central& operator=(const Central&) = delete;

  [[nodiscard]] CBManagerState state() const override { return state_; }
  void scanForPeripheralsWithServices_options(const std::optional<std::vector<CBUUID>>& services,
                                              const std::optional<CBScanOptions>& options) override;
  void stopScan() override;
  void connectPeripheral_options(const std::shared_ptr<CBPeripheral>& peripheral,
                                 const std::optional<CBConnectOptions>& options) override;
  void cancelPeripheralConnection(const std::shared_ptr<CBPeripheral>& peripheral) override;

 private:
  enum class Stage { connecting, linked, cancelling };
  struct Entry {
    Stage stage = Stage::connecting;
    bool wasLinked = false;
    bool again = false;  // Asked for once more while the end was under way.
    int failures = 0;
  };
  using Peripherals = std::vector<std::shared_ptr<Peripheral>>;

  void didUpdateState(CBManagerState state) override;
  void didDiscover(::CBPeripheral* device, const CBAdvertisementData& advertisement,
                   int rssi) override;
  void didConnect(::CBPeripheral* device) override;
  void didEnd(::CBPeripheral* device, const std::optional<NSError>& error) override;

  [[nodiscard]] bool works() const;
  [[nodiscard]] Peripherals withEntries() const;
  [[nodiscard]] ::CBPeripheral* deviceOf(const Peripheral& peripheral) const;
  ::CBPeripheral* findDeviceOf(const Peripheral& peripheral);
  void begin(const std::shared_ptr<Peripheral>& peripheral);
  void beginAfterFailure(const std::shared_ptr<Peripheral>& peripheral);
  void end(const std::shared_ptr<Peripheral>& peripheral, const std::optional<NSError>& error);
  void endUnreported(const std::shared_ptr<Peripheral>& peripheral, Time delay, int looks);
  void endWithThePower(const std::shared_ptr<Peripheral>& peripheral);

  const std::shared_ptr<Core> core_;
  const std::weak_ptr<CBCentralManagerDelegate> delegate_;
  Strong<::KestrinCentralEvents*> events_;
  Strong<::CBCentralManager*> manager_;
  CBManagerState state_ = CBManagerState::unknown;
  bool scanning_ = false;
  std::map<const Peripheral*, std::optional<std::string>> reported_;  // With the name of then.
  // The system lets go of a device that nobody keeps, its link included.
  std::map<const Peripheral*, Strong<::CBPeripheral*>> devices_;
  std::map<std::shared_ptr<Peripheral>, Entry> entries_;
};

}  // namespace kestrin::corebluetooth
