#include "KestrinBLESDK/platform/Platform.h"

#include <mutex>
#include <utility>

namespace kestrin {
namespace {

/// A central manager without a radio: it reports the state unsupported, once.
class UnsupportedCentralManager final : public CBCentralManager {
 public:
  [[nodiscard]] CBManagerState state() const override { return state_; }
  void scanForPeripheralsWithServices_options(const std::optional<std::vector<CBUUID>>&,
                                              const std::optional<CBScanOptions>&) override {}
  void stopScan() override {}
  void connectPeripheral_options(const std::shared_ptr<CBPeripheral>&,
                                 const std::optional<CBConnectOptions>&) override {}
  void cancelPeripheralConnection(const std::shared_ptr<CBPeripheral>&) override {}

  void becomeUnsupported() { state_ = CBManagerState::unsupported; }

 private:
  CBManagerState state_ = CBManagerState::unknown;
};

std::shared_ptr<CBCentralManager> makeUnsupported(
    const std::weak_ptr<CBCentralManagerDelegate>& delegate, RunLoop& loop) {
  auto manager = std::make_shared<UnsupportedCentralManager>();
  loop.post([weak = std::weak_ptr(manager), delegate] {
    const auto self = weak.lock();
    if (!self) return;
    self->becomeUnsupported();
    if (const auto receiver = delegate.lock()) receiver->centralManagerDidUpdateState(self);
  });
  return manager;
}

/// Stands for whichever radio is installed when a central manager is made.
class SystemRadio final : public Radio {
 public:
  std::shared_ptr<CBCentralManager> initWithDelegate_queue(
      std::weak_ptr<CBCentralManagerDelegate> delegate, std::shared_ptr<RunLoop> queue) override {
    if (const auto radio = installed()) {
      return radio->initWithDelegate_queue(std::move(delegate), std::move(queue));
    }
    return makeUnsupported(delegate, queue ? *queue : *MainRunLoop::main());
  }
  [[nodiscard]] std::string stateReason() const override {
    if (const auto radio = installed()) return radio->stateReason();
    return "no radio is installed: call a radio library's install function, for example "
           "kestrin::bluez::install(), before the first scan";
  }
  void install(std::shared_ptr<Radio> radio) {
    const std::scoped_lock lock(mutex_);
    installed_.swap(radio);
  }

 private:
  std::shared_ptr<Radio> installed() const {
    const std::scoped_lock lock(mutex_);
    return installed_;
  }
  mutable std::mutex mutex_;
  std::shared_ptr<Radio> installed_;
};

const std::shared_ptr<SystemRadio>& systemRadio() {
  static const auto* const radio =
      new std::shared_ptr<SystemRadio>(std::make_shared<SystemRadio>());
  return *radio;
}

}  // namespace

Platform Platform::systemDefault() {
  return {.radio = systemRadio(),
          .mainRunLoop = MainRunLoop::main(),
          .thread = sleepOn(MainRunLoop::main()),
          .notificationCenter = NSNotificationCenter::defaultCenter(),
          .dispatch = Dispatch::system(),
          .log = defaultLogSink()};
}

void Platform::installRadio(std::shared_ptr<Radio> radio) {
  systemRadio()->install(std::move(radio));
}

Platform Platform::completed() const {
  Platform whole = *this;
  const Platform system = systemDefault();
  // A weak pointer that was never set differs from one whose loop is gone; only the first is empty.
  const std::weak_ptr<RunLoop> unset;
  const bool loopUnset = !mainRunLoop.owner_before(unset) && !unset.owner_before(mainRunLoop);
  if (loopUnset) whole.mainRunLoop = system.mainRunLoop;
  if (!whole.radio) whole.radio = system.radio;
  if (!whole.thread) whole.thread = system.thread;
  if (!whole.notificationCenter) whole.notificationCenter = system.notificationCenter;
  if (!whole.dispatch) whole.dispatch = system.dispatch;
  if (!whole.log) whole.log = system.log;
  return whole;
}

}  // namespace kestrin
