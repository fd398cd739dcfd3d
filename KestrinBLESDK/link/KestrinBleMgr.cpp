// The manager: creation, the client's queries, entering the background.
#include "KestrinBLESDK/KestrinBleMgr.h"

namespace kestrin {

SelectorResponder::~SelectorResponder() = default;

void KestrinBLEProtocols::scanBleStatus(std::int64_t /*status*/) noexcept {}
void KestrinBLEProtocols::scanningBleDeive(
    const std::shared_ptr<CBPeripheral>& /*peripheral*/) noexcept {}

void RcpReceiver::plugChangedStatus(bool /*plugged*/) noexcept {}
void RcpReceiver::dispatchRcpFrmReader(const std::optional<NSData>& /*frame*/) noexcept {}

std::shared_ptr<KestrinBleMgr> KestrinBleMgr::sharedInstance() noexcept {
  static dispatch_once_t onceToken;
  // Never destroyed: it lives for the life of the process, and so does what it runs on.
  static std::shared_ptr<KestrinBleMgr>* slot = nullptr;
  dispatch_once(onceToken, [] { slot = new std::shared_ptr<KestrinBleMgr>(init()); });
  return *slot;
}

std::shared_ptr<KestrinBleMgr> KestrinBleMgr::init(const Platform& platform) noexcept {
  auto self = std::make_shared<KestrinBleMgr>(OnlyInit{}, platform.completed());
  self->platform_.notificationCenter->addObserver_selector_name_object(
      self, selectorOf<&KestrinBleMgr::easEnterBackground>("easEnterBackground"),
      UIApplicationDidEnterBackgroundNotification, nullptr);
  return self;
}

KestrinBleMgr::KestrinBleMgr(OnlyInit, const Platform& platform) noexcept
    : platform_(platform), hopsInPlace_(platform.dispatch == Dispatch::system()) {}

KestrinBleMgr::~KestrinBleMgr() = default;

std::shared_ptr<KestrinBLEProtocols> KestrinBleMgr::delegate() const noexcept {
  return _delegate.lock();
}

std::shared_ptr<RcpReceiver> KestrinBleMgr::rcpReceiverDelegate() const noexcept {
  return _rcpReceiverDelegate.lock();
}

std::shared_ptr<CBPeripheral> KestrinBleMgr::pripheral() const noexcept {
  return discoveredPeripheral;
}

bool KestrinBleMgr::open() const noexcept { return isConnected; }

bool KestrinBleMgr::isOpened() const noexcept { return isConnected; }

void KestrinBleMgr::close() noexcept { p_disconnectBLE(); }

void KestrinBleMgr::easEnterBackground() noexcept {
  rearm(selectorOf<&KestrinBleMgr::accessoryDidDisconnect>("accessoryDidDisconnect"), 0.0);
}

void KestrinBleMgr::accessoryDidDisconnect() noexcept { close(); }

void KestrinBleMgr::peripheralManagerDidUpdateState(
    const std::shared_ptr<void>& /*peripheral*/) noexcept {}

void KestrinBleMgr::rearm(const SEL& request, double seconds) noexcept {
  const auto loop = platform_.mainRunLoop.lock();
  if (!loop) return;
  loop->cancelPreviousPerformRequestsWithTarget_selector_object(this, request, nullptr);
  loop->performSelector_withObject_afterDelay(shared_from_this(), request, nullptr, seconds);
}

}  // namespace kestrin
