#include "KestrinBLESDK/RadioWatch.h"

#include <map>
#include <mutex>
#include <utility>

namespace kestrin {
namespace {

std::string inWords(CBManagerState state) {
  switch (state) {
    case CBManagerState::unknown:
      return "not known yet";
    case CBManagerState::resetting:
      return "resetting";
    case CBManagerState::unsupported:
      return "not there";
    case CBManagerState::unauthorized:
      return "not permitted";
    case CBManagerState::poweredOff:
      return "powered off";
    case CBManagerState::poweredOn:
      return "powered on";
  }
  return "in state " + std::to_string(static_cast<std::int64_t>(state));
}

/// A watch holds its radio, so an address names no other radio for as long as its watch is there.
/// Loops are told apart as well: one radio may report to several.
using Key = std::pair<const Radio*, const RunLoop*>;

struct Watches {
  std::mutex mutex;
  std::map<Key, std::weak_ptr<RadioWatch>> byKey;
};

Watches& watches() {
  static auto* const all = new Watches;
  return *all;
}

}  // namespace

class RadioWatch::Listener final : public CBCentralManagerDelegate {
 public:
  explicit Listener(std::weak_ptr<RadioWatch> watch) : watch_(std::move(watch)) {}
  void centralManagerDidUpdateState(
      const std::shared_ptr<CBCentralManager>& central) noexcept override {
    if (const auto watch = watch_.lock()) watch->take(central->state());
  }

 private:
  const std::weak_ptr<RadioWatch> watch_;
};

std::shared_ptr<RadioWatch> RadioWatch::of(const Platform& platform) {
  const Platform whole = platform.completed();
  const Key key{whole.radio.get(), whole.mainRunLoop.lock().get()};
  std::shared_ptr<RadioWatch> watch;
  {
    const std::scoped_lock lock(watches().mutex);
    std::erase_if(watches().byKey, [](const auto& entry) { return entry.second.expired(); });
    auto& known = watches().byKey[key];
    watch = known.lock();
    if (watch) return watch;
    watch = std::make_shared<RadioWatch>(Private(), whole);
    known = watch;
  }
  // Only now: a radio is not called while the lock is held.
  watch->listener_ = std::make_shared<Listener>(watch);
  watch->central_ = whole.radio->initWithDelegate_queue(watch->listener_, nullptr);
  return watch;
}

RadioWatch::RadioWatch(Private /*key*/, const Platform& platform) : platform_(platform) {}

RadioWatch::~RadioWatch() = default;

bool RadioWatch::unusable() const noexcept {
  return state_ == CBManagerState::unsupported || state_ == CBManagerState::unauthorized;
}

std::string RadioWatch::description() const {
  std::string reason = platform_.radio->stateReason();
  if (!reason.empty() && state_ != CBManagerState::poweredOn) return reason;
  return "the radio is " + inWords(state_);
}

std::shared_ptr<void> RadioWatch::listen(Handler handler) {
  const auto kept = std::make_shared<Handler>(std::move(handler));
  std::erase_if(handlers_, [](const auto& each) { return each.expired(); });
  handlers_.push_back(kept);
  const auto loop = platform_.mainRunLoop.lock();
  if (loop && state_ != CBManagerState::unknown) {
    loop->post([weak = weak_from_this(), weakHandler = std::weak_ptr(kept)] {
      const auto self = weak.lock();
      const auto called = weakHandler.lock();
      if (self && called) (*called)(self->state_);
    });
  }
  return kept;
}

void RadioWatch::take(CBManagerState state) noexcept {
  state_ = state;
  // A copy: a handler may drop its token, or add another.
  for (const auto& each : std::vector(handlers_)) {
    if (const auto handler = each.lock()) (*handler)(state);
  }
}

}  // namespace kestrin
