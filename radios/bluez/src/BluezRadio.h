// The radio itself: what the library makes central managers with.
//
// Threads: any. Lifetime: shared; its central managers keep the session too.
// Errors: none; see kestrin/bluez/Bluez.h.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "Centrals.h"
#include "KestrinBLESDK/platform/Radio.h"
#include "KestrinBLESDK/platform/RunLoop.h"
#include "Session.h"

namespace kestrin::bluez {

class BluezRadio final : public Radio {
 public:
  BluezRadio(std::shared_ptr<Session> session, std::weak_ptr<RunLoop> mainRunLoop,
             std::optional<std::string> adapter);
  ~BluezRadio() override;
  BluezRadio(const BluezRadio&) = delete;
  BluezRadio& operator=(const BluezRadio&) = delete;

  std::shared_ptr<CBCentralManager> initWithDelegate_queue(
      std::weak_ptr<CBCentralManagerDelegate> delegate, std::shared_ptr<RunLoop> queue) override;
  [[nodiscard]] std::string stateReason() const override { return board_->get(); }

 private:
  const std::uint64_t id_;
  const std::weak_ptr<RunLoop> mainRunLoop_;
  const std::optional<std::string> adapter_;
  const std::shared_ptr<Session> session_;
  const std::shared_ptr<StateBoard> board_;
};

}  // namespace kestrin::bluez
