// A reader's phases: what leads from one to the next.
#include "KestrinBLESDK/reader/ReaderCore.h"

#include <algorithm>
#include <cassert>
#include <chrono>
#include <utility>

#include "KestrinBLESDK/link/ReaderLayout.h"
#include "KestrinBLESDK/reader/Errors.h"
#include "KestrinBLESDK/recording/RecordedPlatform.h"

namespace kestrin::reader {
namespace {

constexpr Time kFirstPause = std::chrono::milliseconds(500);
constexpr Time kLongestPause = std::chrono::minutes(1);

/// The pause in front of an attempt: none at first, then from half a second on twice the last.
Time pauseBefore(std::size_t attempt) {
  if (attempt == 0) return Time::zero();
  Time pause = kFirstPause;
  for (std::size_t i = 1; i < attempt && pause < kLongestPause; ++i) pause *= 2;
  return std::min(pause, kLongestPause);
}

}  // namespace

ReaderCore::ReaderCore(Reader& owner, const Platform& platform, ReaderOptions options,
                       ReaderHandlers handlers)
    : owner_(&owner),
      handlers_(std::make_shared<const ReaderHandlers>(std::move(handlers))),
      platform_(platform),
      options_(std::move(options)),
      watch_(options_.watch ? options_.watch : RadioWatch::of(unrecorded(platform))),
      sends_(std::make_shared<SendQueue>(platform_.mainRunLoop,
                                         [this](const NSData& slice) { return write(slice); })),
      limit_(platform_.mainRunLoop),
      radio_(unrecorded(platform).radio),
      choice_(options_.reader, radio_) {}

ReaderCore::~ReaderCore() = default;

void ReaderCore::start() {
  static constexpr SEL kLeaveSoon{
      "leaveSoon", [](void* target, const std::shared_ptr<void>& /*notification*/) noexcept {
        static_cast<ReaderCore*>(target)->leaveSoon({});
      }};
  const auto self = shared_from_this();
  watchToken_ = watch_->listen([weak = weak_from_this()](CBManagerState state) {
    if (const auto core = weak.lock()) core->takeRadioState(state);
  });
  claimToken_ = Claim::onRelease(platform_.mainRunLoop, [weak = weak_from_this()] {
    const auto core = weak.lock();
    if (core && core->owner_ != nullptr) core->lookAround();
  });
  platform_.notificationCenter->addObserver_selector_name_object(
      std::shared_ptr<void>(self, this), kLeaveSoon, UIApplicationDidEnterBackgroundNotification,
      nullptr);
  makeManager();
  startLimit(options_.findLimit, &ReaderCore::findLimitPassed);
  manager_->scanBLE();
  later(&ReaderCore::lookAround);
}

void ReaderCore::makeManager() {
  const auto self = shared_from_this();
  Platform observed = platform_;
  observed.radio = watched(platform_.radio, std::weak_ptr<LinkListener>(self));
  manager_ = std::make_unique<RecordedManager>(observed, platform_);
  manager_->setDelegate(self);
  manager_->setRcpReceiverDelegate(self);
}

void ReaderCore::drop() noexcept {
  const bool isClosed = std::exchange(phase_, ReaderPhase::closed) == ReaderPhase::closed;
  owner_ = nullptr;
  sends_->drop();
  for (Awaited& each : awaited_) disarm(each.limit);
  awaited_.clear();
  closed_.clear();
  limit_.stop();
  disarm(pause_);
  disarm(settling_);
  watchToken_.reset();
  claimToken_.reset();
  const auto manager = std::exchange(manager_, nullptr);
  if (!isClosed) manager->close();
  claim_.reset();
  // A handler that runs is kept by who called it.
  handlers_.reset();
}

// The radio.

void ReaderCore::takeRadioState(CBManagerState state) {
  if (phase_ == ReaderPhase::closed || phase_ == ReaderPhase::away) return;
  if (state == CBManagerState::unknown) return;
  if (state == CBManagerState::poweredOn) {
    radioIsOn();
  } else {
    radioIsOff();
  }
}

void ReaderCore::radioIsOff() {
  const auto code = watch_->unusable() ? ReaderError::radioUnusable : ReaderError::radioOff;
  const std::string why = watch_->description();
  const bool isNews = phase_ != ReaderPhase::radioOff || why != radioTrouble_;
  const bool isLoss = phase_ == ReaderPhase::linkingUp || phase_ == ReaderPhase::pluggedIn;
  radioTrouble_ = why;
  if (phase_ != ReaderPhase::radioOff) {
    disarm(pause_);
    lookLater();
    endFrames();
    enter(ReaderPhase::radioOff);
  }
  if (isNews && phase_ == ReaderPhase::radioOff) tellTrouble(code, why);
  if (isLoss && !options_.reconnect && phase_ == ReaderPhase::radioOff) giveUp();
}

void ReaderCore::radioIsOn() {
  if (phase_ != ReaderPhase::radioOff) return;
  if (!device_) {
    // The manager scans by itself from the radio's report on.
    enter(ReaderPhase::searching);
    lookAround();
  } else if (link_ == Link::none) {
    connect();
  } else {
    // An attempt has waited for the radio. A link that claims to have outlived it is given up.
    if (link_ == Link::up) manager_->close();
    enter(ReaderPhase::connecting);
  }
}

void ReaderCore::radioReported() noexcept {
  // A manager scans whenever its radio is powered on. To one that works a reader another sighting
  // would only do harm: it would take that reader for its own.
  const bool resting = phase_ == ReaderPhase::away || phase_ == ReaderPhase::closed;
  if (manager_ && (device_ || resting)) manager_->stopSacnBLE();
}

// The link.

void ReaderCore::connect() {
  if (!limit_.isRunning()) startLimit(options_.plugInLimit, &ReaderCore::plugInLimitPassed);
  if (std::exchange(hadLink_, false)) {
    // What a manager has received of a frame outlives the link, and would swallow the next one's;
    // so do its delayed requests.
    makeManager();
    manager_->scanBLE();
  }
  link_ = Link::wanted;
  manager_->connectBLE(device_);
  enter(ReaderPhase::connecting);
}

void ReaderCore::linkBegan(const std::shared_ptr<CBPeripheral>& device) noexcept {
  if (device != device_ || link_ == Link::none) return;
  link_ = Link::up;
  hadLink_ = true;
  if (phase_ == ReaderPhase::connecting || phase_ == ReaderPhase::radioOff) {
    // The one that ran may have passed before the link was there.
    if (!limit_.isRunning()) startLimit(options_.plugInLimit, &ReaderCore::plugInLimitPassed);
    enter(ReaderPhase::linkingUp);
  }
}

void ReaderCore::plugChangedStatus(bool plugged) noexcept {
  // What has ended, the radio reports; this would also come of a mere `close`.
  if (!plugged || phase_ != ReaderPhase::linkingUp) return;
  limit_.stop();
  attempts_ = 0;
  enter(ReaderPhase::pluggedIn);
}

void ReaderCore::linkEnded(const std::shared_ptr<CBPeripheral>& device) noexcept {
  if (device != device_) return;
  link_ = Link::none;
  switch (phase_) {
    case ReaderPhase::connecting:
    case ReaderPhase::linkingUp:
    case ReaderPhase::pluggedIn:
      lose();
      break;
    case ReaderPhase::radioOff:
    case ReaderPhase::searching:
    case ReaderPhase::lost:
    case ReaderPhase::away:
    case ReaderPhase::closed:
      break;
  }
  for (const auto& done : std::exchange(closed_, {})) {
    if (owner_ != nullptr) done();
  }
}

void ReaderCore::lose() {
  const bool wasPluggedIn = phase_ == ReaderPhase::pluggedIn;
  endFrames();
  if (options_.reconnect) pause_ = arm(pauseBefore(attempts_++), &ReaderCore::connectAfterPause);
  enter(ReaderPhase::lost);
  if (options_.reconnect || phase_ != ReaderPhase::lost) return;
  tellTrouble(ReaderError::unplugged,
              "the link to " + inQuotes(name_) +
                  (wasPluggedIn ? " was lost" : " went down before it could be used"));
  if (phase_ == ReaderPhase::lost) giveUp();
}

void ReaderCore::connectAfterPause() {
  assert(phase_ == ReaderPhase::lost);
  pause_.reset();
  connect();
}

// Limits.

void ReaderCore::startLimit(const std::optional<Time>& limit, void (ReaderCore::*passed)()) {
  if (!limit) return;
  limit_.start(*limit, [weak = weak_from_this(), passed] {
    const auto self = weak.lock();
    if (!self) return;
    self->limit_.stop();
    (*self.*passed)();
  });
}

void ReaderCore::findLimitPassed() {
  const bool isOn = watch_->state() == CBManagerState::poweredOn;
  const std::string text = choice_.notFound(inSeconds(*options_.findLimit)) + "; " +
                           (isOn ? choice_.inRange() : watch_->description());
  tellTrouble(ReaderError::notFound, text);
  if (!options_.reconnect && phase_ != ReaderPhase::closed) giveUp();
}

void ReaderCore::plugInLimitPassed() {
  std::string text = "the reader " + inQuotes(name_) + " was not plugged in within " +
                     inSeconds(*options_.plugInLimit);
  if (watch_->state() != CBManagerState::poweredOn) text += "; " + watch_->description();
  // An attempt goes on inside the radio; a link that leads to nothing is given up, which its end
  // shows.
  if (options_.reconnect && phase_ == ReaderPhase::linkingUp) manager_->close();
  tellTrouble(ReaderError::notPluggedIn, text);
  if (!options_.reconnect && phase_ != ReaderPhase::closed) giveUp();
}

// Away and closed.

void ReaderCore::leaveSoon(std::function<void()> done) {
  const auto loop = platform_.mainRunLoop.lock();
  if (!loop) return;
  loop->post([weak = weak_from_this(), done = std::move(done)] {
    const auto self = weak.lock();
    if (self && self->owner_ != nullptr) self->leave(done);
  });
}

void ReaderCore::comeBackSoon() { later(&ReaderCore::comeBack); }

void ReaderCore::leave(std::function<void()> done) {
  ++departures_;
  if (phase_ == ReaderPhase::closed || phase_ == ReaderPhase::away) {
    if (done) whenDown(std::move(done));
    return;
  }
  limit_.suspend();
  disarm(pause_);
  lookLater();
  endFrames();
  manager_->close();
  if (done) whenDown(std::move(done));
  enter(ReaderPhase::away);
}

void ReaderCore::comeBack() {
  whenDown([weak = weak_from_this(), departure = departures_] {
    const auto self = weak.lock();
    if (self && self->departures_ == departure) self->goOn();
  });
}

void ReaderCore::goOn() {
  if (phase_ != ReaderPhase::away) return;
  limit_.resume();
  if (watch_->state() != CBManagerState::poweredOn && watch_->state() != CBManagerState::unknown) {
    radioIsOff();
  } else if (device_) {
    connect();
  } else {
    manager_->scanBLE();
    enter(ReaderPhase::searching);
    lookAround();
  }
}

void ReaderCore::giveUp() {
  stop();
  enter(ReaderPhase::closed);
}

void ReaderCore::close(std::function<void()> done) {
  if (phase_ != ReaderPhase::closed) {
    stop();
    phase_ = ReaderPhase::closed;
  }
  if (done) whenDown(std::move(done));
}

void ReaderCore::stop() {
  limit_.stop();
  disarm(pause_);
  disarm(settling_);
  endFrames();
  manager_->close();
  // Until its link is down the device is nobody else's.
  whenDown([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->claim_.reset();
  });
}

void ReaderCore::whenDown(std::function<void()> done) {
  if (link_ != Link::none) {
    closed_.push_back(std::move(done));
    return;
  }
  const auto loop = platform_.mainRunLoop.lock();
  if (!loop) return;
  loop->post([weak = weak_from_this(), done = std::move(done)] {
    const auto self = weak.lock();
    if (self && self->owner_ != nullptr) done();
  });
}

// Handlers and timers.

void ReaderCore::enter(ReaderPhase phase) {
  assert(mayFollow(phase_, phase));
  phase_ = phase;
  tell(&ReaderHandlers::onPhase, phase);
}

void ReaderCore::tellTrouble(ReaderError code, const std::string& text) {
  tell(&ReaderHandlers::onTrouble, errorOf(code, text));
}

void ReaderCore::later(void (ReaderCore::*operation)()) { arm(Time::zero(), operation); }

std::optional<RunLoop::TimerId> ReaderCore::arm(Time delay, void (ReaderCore::*operation)()) {
  const auto loop = platform_.mainRunLoop.lock();
  if (!loop) return std::nullopt;
  return loop->arm(delay, [weak = weak_from_this(), operation] {
    const auto self = weak.lock();
    if (self && self->owner_ != nullptr) (*self.*operation)();
  });
}

void ReaderCore::disarm(std::optional<RunLoop::TimerId>& timer) {
  if (const auto loop = platform_.mainRunLoop.lock(); loop && timer) loop->cancel(*timer);
  timer.reset();
}

}  // namespace kestrin::reader
