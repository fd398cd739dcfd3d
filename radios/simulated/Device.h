// One virtual device: what it puts on the air, the central managers that want it or have it, and
// its link.
//
// Each central manager has a share of the link of its own: one that connects to a device that is
// already linked is told at once, and the link ends with its last share.
//
// Threads: on the main run loop.
// Lifetime: held by the radio core and by its handles. It holds central managers weakly. Operations
// take the core, so that none runs without one.
// Errors: none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "AttributeServer.h"
#include "Link.h"
#include "Peripheral.h"
#include "RadioCore.h"

namespace kestrin::simulated {

class Device : public std::enable_shared_from_this<Device> {
 public:
  static std::shared_ptr<Device> make(const std::shared_ptr<RadioCore>& core,
                                      std::optional<std::string> name, AttributeServer server,
                                      std::vector<CBUUID> advertisedServices);

  [[nodiscard]] std::shared_ptr<RadioCore> core() const { return core_.lock(); }
  [[nodiscard]] const std::shared_ptr<SimulatedPeripheral>& peripheral() const noexcept {
    return peripheral_;
  }
  [[nodiscard]] AttributeServer& server() noexcept { return server_; }
  [[nodiscard]] const std::shared_ptr<Link>& link() const noexcept { return link_; }

  // On the air.
  [[nodiscard]] bool isInRange() const noexcept { return present_; }
  /// Whether it advertises by itself: not while it is linked.
  [[nodiscard]] bool isAdvertising() const noexcept { return present_ && !isLinked(); }
  [[nodiscard]] const std::optional<std::string>& advertisedName() const noexcept { return name_; }
  [[nodiscard]] const std::vector<CBUUID>& advertisedServices() const noexcept {
    return advertisedServices_;
  }
  void vanish(RadioCore& core);
  void appear(RadioCore& core);
  void rename(RadioCore& core, std::optional<std::string> name);

  // What central managers ask for.
  void connect(RadioCore& core, const std::shared_ptr<CentralManager>& central);
  /// Ends the central manager's share or attempt and reports that, if it had one.
  void cancel(RadioCore& core, const std::shared_ptr<CentralManager>& central);
  /// The same for a central manager that is going away and gets no report.
  void letGo(RadioCore& core, CentralId central);
  void radioSwitched(RadioCore& core);

  // The link.
  /// Whether a link is up, by the device's own account.
  [[nodiscard]] bool isLinked() const noexcept { return link_ && link_->isOpen(); }
  [[nodiscard]] std::size_t attempts() const noexcept { return attempts_; }
  void loseLink(RadioCore& core, const NSError& why);
  void setNeverCompleting(RadioCore& core, bool never);
  void setFailing(std::size_t attempts) noexcept { failing_ = attempts; }
  [[nodiscard]] std::vector<CBUUID> subscriptions() const;
  void receive(RadioCore& core, const SimulatedCharacteristic& characteristic, const NSData& value,
               CBCharacteristicWriteType type);
  /// Notifies a value; returns whether anybody is subscribed.
  bool notify(RadioCore& core, const CBUUID& characteristic, const NSData& value);

 private:
  struct Share {
    CentralId id = 0;
    std::uint64_t request = 0;  // Tells it from an earlier share of the same central manager.
    std::weak_ptr<CentralManager> central;
    bool reported = false;  // Whether it has been told of the link.
  };
  using Centrals = std::vector<std::weak_ptr<CentralManager>>;
  /// One attempt with the pause after it; dropping it makes its timers do nothing.
  struct Attempt {};

  Device(std::weak_ptr<RadioCore> core, std::optional<std::string> name, AttributeServer server,
         std::vector<CBUUID> advertisedServices);

  [[nodiscard]] std::vector<Share>::iterator find(CentralId central);
  void startAttempt(RadioCore& core);
  void finishAttempt(RadioCore& core);
  void linkUp(RadioCore& core);
  void reportLink(RadioCore& core, const Share& asked);
  std::shared_ptr<Link> giveUp(RadioCore& core, std::vector<Share>::iterator share,
                               const Centrals& listeners);
  void goSilent();
  std::shared_ptr<Link> closeLink(RadioCore& core, const NSError& why, const Centrals& listeners);
  void afterLink(RadioCore& core, const std::shared_ptr<Link>& ended);

  const std::weak_ptr<RadioCore> core_;
  std::shared_ptr<SimulatedPeripheral> peripheral_;
  std::optional<std::string> name_;
  const std::vector<CBUUID> advertisedServices_;
  AttributeServer server_;
  bool present_ = true;
  bool neverCompleting_ = false;
  std::size_t failing_ = 0;
  std::size_t attempts_ = 0;
  Time retryPause_{};
  std::uint64_t lastRequest_ = 0;
  std::vector<Share> shares_;
  std::shared_ptr<Attempt> attempt_;
  std::shared_ptr<Link> link_;
};

}  // namespace kestrin::simulated
