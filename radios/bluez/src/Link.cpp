#include "Link.h"

#include <algorithm>
#include <utility>

#include "Errors.h"

namespace kestrin::bluez {
namespace {

// The daemon itself gives an attempt up after 42 s at most; its answer is worth waiting for, since
// a second call before it is refused.
constexpr Time kConnectLimit = std::chrono::seconds(60);
// A daemon that is finding a device's services needs a few seconds; the kernel ends a link that a
// killed daemon has left after 2 s.
constexpr Time kJoinLimit = std::chrono::seconds(10);

}  // namespace

Link::Link(LinkHost& host, BusThread& thread, Daemon& daemon, std::shared_ptr<LinkLine> line,
           std::shared_ptr<Peripheral> peripheral)
    : host_(host),
      thread_(thread),
      daemon_(daemon),
      line_(std::move(line)),
      peripheral_(std::move(peripheral)) {}

bool Link::isHeldBy(std::uint64_t central) const {
  return std::any_of(holders_.begin(), holders_.end(),
                     [&](const LinkHolder& holder) { return holder.central == central; });
}

void Link::addHolder(LinkHolder holder) {
  if (isHeldBy(holder.central)) return;
  holders_.push_back(std::move(holder));
  if (phase_ == Phase::up) postConnected(holders_.back(), line_, peripheral_);
  if (holders_.size() == 1) attempt();
}

void Link::letGo(std::uint64_t central) {
  const auto found = std::find_if(holders_.begin(), holders_.end(), [&](const LinkHolder& holder) {
    return holder.central == central;
  });
  if (found == holders_.end() || phase_ == Phase::ended) return;
  const LinkHolder holder = *found;
  holders_.erase(found);
  if (!holders_.empty()) {
    postDisconnected(holder, number(), peripheral_, std::nullopt);
    return;
  }
  const auto keep = shared_from_this();
  // A link that is joined may be that of an earlier call which was given up.
  const bool daemonHasIt =
      phase_ == Phase::up || phase_ == Phase::calling || (phase_ == Phase::joining && attempt_ > 0);
  become(Phase::ended);
  if (gatt_) gatt_->close(linkGivenUp());
  auto report = [holder, number = number(), peripheral = peripheral_] {
    postDisconnected(holder, number, peripheral, std::nullopt);
  };
  host_.linkEnded(device(), number());
  if (daemonHasIt) {
    host_.disconnect(device(), std::move(report));
  } else {
    report();
  }
}

void Link::letGoOfAll() {
  const auto keep = shared_from_this();
  for (const auto& holder : std::vector<LinkHolder>(holders_)) letGo(holder.central);
}

void Link::become(Phase phase) {
  thread_.cancel(retry_);
  if (phase_ == Phase::searching && phase != Phase::searching) host_.endSearch(device(), number());
  phase_ = phase;
}

void Link::resume() {
  if (phase_ == Phase::waiting || phase_ == Phase::searching) attempt();
}

void Link::attempt() {
  if (!isPowered() || host_.isDisconnecting(device())) {
    become(Phase::waiting);
    return;
  }
  if (const auto* object = daemon_.tree().device(device())) {
    if (object->connected && !object->servicesResolved && !hasCut_) {
      join();
    } else {
      callConnect();
    }
    return;
  }
  if (phase_ == Phase::searching) return;
  become(Phase::searching);
  host_.beginSearch(device(), number());
}

// Such a link is another program's, on its way up, or what a killed daemon has left, which its
// successor shows until the kernel ends it. The daemon would answer at once that it is connected,
// and of the second kind nothing but its end would follow.
void Link::join() {
  if (phase_ == Phase::joining) return;
  become(Phase::joining);
  retry_ = thread_.arm(kJoinLimit, [weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    self->retry_.reset();
    self->hasCut_ = true;
    self->become(Phase::waiting);
    self->host_.disconnect(self->device(), {});
  });
}

void Link::callConnect() {
  // The session that found the device ends only after the attempt has begun: a device that nobody
  // uses is forgotten by the daemon.
  const bool searched = phase_ == Phase::searching;
  daemon_.call(device(), kDeviceInterface, "Connect", kConnectLimit, {},
               [weak = weak_from_this(), attempt = ++attempt_](
                   const std::optional<CallError>& error, sdbus::MethodReply&) {
                 const auto self = weak.lock();
                 if (self && attempt == self->attempt_) self->connectAnswered(error);
               });
  if (searched) host_.endSearch(device(), number());
  thread_.cancel(retry_);
  phase_ = Phase::calling;
}

void Link::connectAnswered(const std::optional<CallError>& error) {
  if (phase_ != Phase::calling) return;
  const bool powered = isPowered();
  // BlueZ 5.66 can call an attempt a success that the end of the adapter's power has ended.
  if (powered && (!error || isDaemonError(*error, "AlreadyConnected"))) {
    goUp();
    return;
  }
  if (error && isRefusal(*error)) host_.refused(device());
  if (powered) {
    pause();
  } else {
    become(Phase::waiting);
  }
}

void Link::pause() {
  become(Phase::pausing);
  retry_ = thread_.arm(pause_.next(), [weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    self->retry_.reset();
    self->attempt();
  });
}

void Link::adapterOff() {
  pause_.reset();
  if (phase_ == Phase::searching || phase_ == Phase::joining || phase_ == Phase::pausing) {
    become(Phase::waiting);
  }
  if (phase_ == Phase::up) lose("the adapter was switched off");
}

void Link::daemonGone() {
  pause_.reset();
  ++attempt_;
  hasCut_ = false;
  if (phase_ == Phase::up) {
    lose("the Bluetooth daemon has gone");
  } else if (phase_ != Phase::ended) {
    become(Phase::waiting);
  }
}

void Link::deviceChanged(const DeviceChange& change) {
  const bool evidence = change.connected == true || change.servicesResolved == true;
  switch (phase_) {
    case Phase::calling:
      if (evidence && isPowered()) goUp();
      break;
    case Phase::searching:
    case Phase::joining:
      attempt();
      break;
    case Phase::pausing:
      if (change.connected == true) attempt();
      break;
    case Phase::up:
      if (change.connected == false) {
        lose("the link was lost");
      } else if (change.servicesResolved == true) {
        resolve();
      }
      break;
    case Phase::waiting:
    case Phase::ended:
      break;
  }
}

void Link::deviceRemoved() {
  if (phase_ == Phase::joining) attempt();
  if (phase_ == Phase::up) lose("the Bluetooth daemon has dropped the device");
}

void Link::serviceAdded() {
  if (phase_ == Phase::calling && isPowered()) goUp();
}

void Link::serviceRemoved() {
  if (phase_ == Phase::up && gatt_->isResolved()) lose("the device's services have gone");
}

void Link::goUp() {
  become(Phase::up);
  pause_.reset();
  const auto weak = weak_from_this();
  gatt_ = LinkGatt::open(
      daemon_,
      {.line = line_, .peripheral = peripheral_, .loop = holders_.front().loop, .hungUp = [weak] {
         if (const auto self = weak.lock()) self->lose("the link was lost");
       }});
  for (const auto& holder : holders_) postConnected(holder, line_, peripheral_);
  const auto* device = daemon_.tree().device(this->device());
  if (device != nullptr && device->servicesResolved) resolve();
}

// What the daemon lists after it has said that all is found is complete; the signals that announce
// the objects may still be on their way.
void Link::resolve() {
  if (std::exchange(resolving_, true)) return;
  daemon_.refreshServices(device(), [weak = weak_from_this()] {
    const auto self = weak.lock();
    if (self && self->phase_ == Phase::up) self->gatt_->setResolved();
  });
}

void Link::lose(const std::string& why) {
  if (phase_ != Phase::up) return;
  const auto keep = shared_from_this();
  const NSError error = linkLost(why);
  become(Phase::ended);
  gatt_->close(error);
  for (const auto& holder : holders_) postDisconnected(holder, number(), peripheral_, error);
  host_.linkEnded(device(), number());
  // A peer that fell silent stays connected for the daemon, and would for the next attempt.
  const auto* object = daemon_.tree().device(device());
  if (object != nullptr && object->connected) host_.disconnect(device(), {});
}

}  // namespace kestrin::bluez
