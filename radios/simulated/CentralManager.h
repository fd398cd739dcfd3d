// A central manager of a simulated radio.
//
// Threads: on the main run loop. Lifetime: holds its radio's core; held by the application alone.
// Its delegate is held weakly. Errors: as CBCentralManager.h says.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestrinBLESDK/platform/CBCentralManager.h"
#include "RadioCore.h"

namespace kestrin::simulated {

class Link;

/// What an advertisement that is heard says of the name.
enum class Advertisement { complete, nameless };

class CentralManager final : public CBCentralManager,
                             public std::enable_shared_from_this<CentralManager> {
 public:
  CentralManager(std::shared_ptr<RadioCore> core, std::weak_ptr<CBCentralManagerDelegate> delegate);
  ~CentralManager() override;
  CentralManager(const CentralManager&) = delete;
  CentralManager& operator=(const CentralManager&) = delete;

  [[nodiscard]] CBManagerState state() const override { return state_; }
  void scanForPeripheralsWithServices_options(const std::optional<std::vector<CBUUID>>& services,
                                              const std::optional<CBScanOptions>& options) override;
  void stopScan() override { scan_.reset(); }
  void connectPeripheral_options(const std::shared_ptr<CBPeripheral>& peripheral,
                                 const std::optional<CBConnectOptions>& options) override;
  void cancelPeripheralConnection(const std::shared_ptr<CBPeripheral>& peripheral) override;

  [[nodiscard]] CentralId id() const noexcept { return id_; }
  /// Posts the first state report.
  void postFirstState();
  /// Posts the report of a change; `change` counts the radio's changes.
  void postState(CBManagerState state, std::uint64_t change);
  /// The device may be heard from now on: a running scan hears it within the advertising interval.
  void listenFor(const std::shared_ptr<Device>& device);
  /// A running scan hears the device in a later turn, and reports it in any case.
  void postHearing(const std::shared_ptr<Device>& device, Advertisement advertisement);
  void reportConnection(Device& device);
  /// Posts the report of a link's or an attempt's end. The last of a link's reports, the one after
  /// which none of `next` is there to get one, is preceded by the answers to what was asked of
  /// `ended` since its end.
  void postDisconnection(Device& device, const std::optional<NSError>& error,
                         const std::shared_ptr<Link>& ended,
                         std::vector<std::weak_ptr<CentralManager>> next);

 private:
  struct Scan {
    std::optional<std::vector<CBUUID>> services;
    /// The name that each device was last reported with.
    std::map<const Device*, std::optional<std::string>> reported;
  };
  enum class Report { changes, always };

  [[nodiscard]] std::shared_ptr<Device> deviceOf(const std::shared_ptr<CBPeripheral>& peripheral);
  void reportState(CBManagerState state);
  void hear(Device& device, Advertisement advertisement, Report report);

  const std::shared_ptr<RadioCore> core_;
  const CentralId id_;
  const std::weak_ptr<CBCentralManagerDelegate> delegate_;
  CBManagerState state_ = CBManagerState::unknown;
  std::uint64_t changesReported_ = 0;
  std::shared_ptr<Scan> scan_;
};

/// A central manager that was asked for on a queue that this radio does not serve: it reports
/// there, once, that it is unsupported.
std::shared_ptr<CBCentralManager> makeUnsupportedCentralManager(
    std::weak_ptr<CBCentralManagerDelegate> delegate, RunLoop& queue);

}  // namespace kestrin::simulated
