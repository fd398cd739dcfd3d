/// \class kestrin::simulated::SimulatedRadio
/// A radio in the process, with virtual peripherals in range, for applications that have no reader
/// at hand. It keeps every promise that CBCentralManager.h and CBPeripheral.h make.
///
/// Threads: on the thread that turns the main run loop, except for `stateReason`, which may be
/// called from any.
///
/// Lifetime: central managers keep alive what they need of their radio. The run loop is held
/// weakly: once it has ended nothing happens any more.
///
/// Errors: none.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/platform/Radio.h"
#include "KestrinBLESDK/platform/RunLoop.h"
#include "kestrin/simulated/GattLayout.h"
#include "kestrin/simulated/Options.h"
#include "kestrin/simulated/VirtualPeripheral.h"

namespace kestrin::simulated {
/// \addtogroup simulated
/// @{

class RadioCore;

class KESTRIN_EXPORT SimulatedRadio final : public Radio {
 public:
  /// A radio that reports on `mainRunLoop`, with nothing in range. A `SimulatedPlatform` makes its
  /// own.
  SimulatedRadio(std::weak_ptr<RunLoop> mainRunLoop, const Options& options);
  ~SimulatedRadio() override;
  SimulatedRadio(const SimulatedRadio&) = delete;
  SimulatedRadio& operator=(const SimulatedRadio&) = delete;

  /// A reader in range that advertises `name` and plays the default script. `layout` replaces the
  /// family's own.
  std::shared_ptr<VirtualPeripheral> addReader(std::string name, ReaderFamily family,
                                               std::optional<GattLayout> layout = std::nullopt);
  /// A peripheral in range that is not a reader. An absent name is never advertised.
  std::shared_ptr<VirtualPeripheral> addPeripheral(std::optional<std::string> name,
                                                   GattLayout layout = nonReaderLayout());

  /// Brings the radio into `state`, which may be a value above 5, and reports the change. In every
  /// state but powered on scans and links have ended and attempts to connect wait.
  void simulateState(CBManagerState state);
  /// As the peripheral's own `simulateAdvertisement`.
  void simulateAdvertisement(const std::shared_ptr<VirtualPeripheral>& peripheral);

  /// Events come on the main run loop. A central manager that is asked for on any other queue
  /// reports there that it is unsupported.
  std::shared_ptr<CBCentralManager> initWithDelegate_queue(
      std::weak_ptr<CBCentralManagerDelegate> delegate, std::shared_ptr<RunLoop> queue) override;
  [[nodiscard]] std::string stateReason() const override;

 private:
  const std::shared_ptr<RadioCore> core_;
};

/// @}

}  // namespace kestrin::simulated
