#include "Device.h"

#include <algorithm>
#include <utility>

#include "CentralManager.h"
#include "Errors.h"

namespace kestrin::simulated {

Device::Device(std::weak_ptr<RadioCore> core, std::optional<std::string> name,
               AttributeServer server, std::vector<CBUUID> advertisedServices)
    : core_(std::move(core)),
      name_(std::move(name)),
      advertisedServices_(std::move(advertisedServices)),
      server_(std::move(server)) {}

std::shared_ptr<Device> Device::make(const std::shared_ptr<RadioCore>& core,
                                     std::optional<std::string> name, AttributeServer server,
                                     std::vector<CBUUID> advertisedServices) {
  std::shared_ptr<Device> device(
      new Device(core, std::move(name), std::move(server), std::move(advertisedServices)));
  device->peripheral_ = std::make_shared<SimulatedPeripheral>(core->nextAddress(), core, device);
  device->retryPause_ = core->options().firstRetryPause;
  core->addDevice(device);
  return device;
}

// On the air.

void Device::vanish(RadioCore& core) {
  if (!std::exchange(present_, false)) return;
  attempt_.reset();
  if (!link_) return;
  core.carryOutSubmitted();
  goSilent();
  core.later(core.options().supervisionTimeout, shared_from_this(),
             [lost = std::weak_ptr(link_)](RadioCore& radio, Device& self) {
               if (self.link_ && self.link_ == lost.lock()) {
                 self.loseLink(radio, connectionTimeout());
               }
             });
}

void Device::appear(RadioCore& core) {
  if (std::exchange(present_, true)) return;
  core.announce(*this);
  startAttempt(core);
}

void Device::rename(RadioCore& core, std::optional<std::string> name) {
  name_ = std::move(name);
  core.announce(*this);
}

// Attempts.

std::vector<Device::Share>::iterator Device::find(CentralId central) {
  return std::find_if(shares_.begin(), shares_.end(),
                      [central](const Share& share) { return share.id == central; });
}

void Device::connect(RadioCore& core, const std::shared_ptr<CentralManager>& central) {
  if (find(central->id()) != shares_.end()) return;
  shares_.push_back({.id = central->id(), .request = ++lastRequest_, .central = central});
  if (link_) {
    reportLink(core, shares_.back());
  } else {
    startAttempt(core);
  }
}

// Begins an attempt as soon as there is anything to attempt and nothing in the way. One that does
// not begin is begun by whatever removes the obstacle.
void Device::startAttempt(RadioCore& core) {
  if (attempt_ || link_ || shares_.empty() || !present_ || !core.isPoweredOn()) return;
  attempt_ = std::make_shared<Attempt>();
  ++attempts_;
  core.later(core.random().between(core.options().connectionDelay), shared_from_this(),
             [running = std::weak_ptr(attempt_)](RadioCore& radio, Device& self) {
               if (!running.expired()) self.finishAttempt(radio);
             });
}

void Device::finishAttempt(RadioCore& core) {
  if (neverCompleting_) return;
  if (failing_ == 0) {
    attempt_.reset();
    linkUp(core);
    return;
  }
  --failing_;
  const Time pause = retryPause_;
  retryPause_ = std::min(retryPause_ * 2, core.options().longestRetryPause);
  core.later(pause, shared_from_this(),
             [running = std::weak_ptr(attempt_)](RadioCore& radio, Device& self) {
               if (running.expired()) return;
               self.attempt_.reset();
               self.startAttempt(radio);
             });
}

void Device::setNeverCompleting(RadioCore& core, bool never) {
  const bool before = std::exchange(neverCompleting_, never);
  if (!before || never) return;
  attempt_.reset();
  startAttempt(core);
}

// The link.

void Device::linkUp(RadioCore& core) {
  retryPause_ = core.options().firstRetryPause;
  link_ = Link::make(server_.layoutOfNextLink());
  peripheral_->show(link_);
  for (const auto& share : shares_) reportLink(core, share);
}

void Device::reportLink(RadioCore& core, const Share& asked) {
  core.later(Time::zero(), shared_from_this(),
             [central = asked.id, request = asked.request, up = std::weak_ptr(link_)](
                 RadioCore&, Device& self) {
               const auto share = self.find(central);
               // The link may have ended since, or the share may have been given up and asked for
               // again: then the end of the first request is to be reported before.
               if (share == self.shares_.end() || share->request != request) return;
               if (!self.link_ || self.link_ != up.lock()) return;
               share->reported = true;
               if (const auto told = share->central.lock()) told->reportConnection(self);
             });
}

void Device::cancel(RadioCore& core, const std::shared_ptr<CentralManager>& central) {
  const auto share = find(central->id());
  if (share == shares_.end()) return;
  const auto ended = giveUp(core, share, {central});
  central->postDisconnection(*this, std::nullopt, ended, {});
  afterLink(core, ended);
}

void Device::letGo(RadioCore& core, CentralId central) {
  const auto share = find(central);
  if (share != shares_.end()) afterLink(core, giveUp(core, share, {}));
}

// Gives a share up; with the last one the attempt or the link ends. `listeners` are who is still
// owed the answers on it. Returns the link that has ended.
std::shared_ptr<Link> Device::giveUp(RadioCore& core, std::vector<Share>::iterator share,
                                     const Centrals& listeners) {
  shares_.erase(share);
  if (!shares_.empty()) return nullptr;
  attempt_.reset();
  retryPause_ = core.options().firstRetryPause;
  return link_ ? closeLink(core, operationCancelled(), listeners) : nullptr;
}

void Device::loseLink(RadioCore& core, const NSError& why) {
  if (!link_) return;
  Centrals listeners;
  for (const auto& share : shares_) listeners.push_back(share.central);
  const auto ended = closeLink(core, why, listeners);
  // Who was never told of the link goes on waiting for one.
  std::vector<Share> waiting;
  Centrals told;
  for (const auto& share : shares_) {
    if (share.reported) {
      told.push_back(share.central);
    } else {
      waiting.push_back(share);
    }
  }
  for (auto next = told.begin(); next != told.end();) {
    const auto central = next->lock();
    ++next;
    if (central) central->postDisconnection(*this, why, ended, Centrals(next, told.end()));
  }
  shares_ = std::move(waiting);
  afterLink(core, ended);
  startAttempt(core);
}

// The device's own end of the link is gone.
void Device::goSilent() {
  link_->close();
  for (const auto& characteristic : link_->characteristics()) characteristic->subscribed = false;
  server_.reset();
}

// Ends the link and posts the answers still owed on it, as long as one of `listeners` lives. What
// was submitted before belongs to the link still, and is owed an answer too.
std::shared_ptr<Link> Device::closeLink(RadioCore& core, const NSError& why,
                                        const Centrals& listeners) {
  core.carryOutSubmitted();
  goSilent();
  auto ended = std::exchange(link_, nullptr);
  for (auto& answer : ended->takeOwed()) {
    core.post([answer = std::move(answer), why, listeners] {
      const bool heard = std::any_of(listeners.begin(), listeners.end(),
                                     [](const auto& central) { return !central.expired(); });
      if (heard) answer(why);
    });
  }
  return ended;
}

// Once all reports of its end are posted: only then the name may change again, and only after that
// the device may be heard again.
void Device::afterLink(RadioCore& core, const std::shared_ptr<Link>& ended) {
  if (!ended) return;
  core.post([peripheral = std::weak_ptr(peripheral_), ended] {
    if (const auto shown = peripheral.lock()) shown->hide(ended);
  });
  core.announce(*this);
}

void Device::radioSwitched(RadioCore& core) {
  if (core.isPoweredOn()) {
    startAttempt(core);
    return;
  }
  attempt_.reset();
  loseLink(core, radioNotPoweredOn());
}

std::vector<CBUUID> Device::subscriptions() const {
  std::vector<CBUUID> subscribed;
  if (!isLinked()) return subscribed;
  for (const auto& characteristic : link_->characteristics()) {
    if (characteristic->subscribed) subscribed.push_back(characteristic->UUID());
  }
  return subscribed;
}

void Device::receive(RadioCore& core, const SimulatedCharacteristic& characteristic,
                     const NSData& value, CBCharacteristicWriteType type) {
  const auto replies = server_.write(
      characteristic,
      {.characteristic = characteristic.UUID(), .value = value, .type = type, .at = core.now()});
  const auto rx = server_.replyCharacteristic();
  if (!rx) return;
  for (const auto& reply : replies) {
    const auto pieces =
        cutIntoPieces(reply, [&core] { return core.random().between(core.options().pieceSize); });
    for (const auto& piece : pieces) notify(core, *rx, piece);
  }
}

bool Device::notify(RadioCore& core, const CBUUID& characteristic, const NSData& value) {
  if (!isLinked()) return false;
  bool subscribed = false;
  for (const auto& found : link_->characteristics()) {
    if (found->UUID() != characteristic || !found->subscribed) continue;
    subscribed = true;
    link_->toCentral(core, shared_from_this(), [found, value](RadioCore&, Device& self, Link&) {
      self.peripheral_->takeValue(found, value);
    });
  }
  return subscribed;
}

}  // namespace kestrin::simulated
