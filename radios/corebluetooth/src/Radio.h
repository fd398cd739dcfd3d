// The radio itself.
//
// Threads: as Radio.h of the platform says. Lifetime: shares its core with its central managers.
// Errors: none.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "Core.h"
#include "KestrinBLESDK/platform/Radio.h"

namespace kestrin::corebluetooth {

class CoreBluetoothRadio final : public Radio {
 public:
  CoreBluetoothRadio(std::weak_ptr<RunLoop> mainRunLoop, const Options& options)
      : core_(std::make_shared<Core>(std::move(mainRunLoop), options)) {}

  std::shared_ptr<CBCentralManager> initWithDelegate_queue(
      std::weak_ptr<CBCentralManagerDelegate> delegate, std::shared_ptr<RunLoop> queue) override;
  [[nodiscard]] std::string stateReason() const override;
  [[nodiscard]] Core& core() const { return *core_; }

 private:
  const std::shared_ptr<Core> core_;
};

}  // namespace kestrin::corebluetooth
