#include "realstack/StressProbeRounds.h"

#include <KestrinBLESDK/RcpFrame.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <utility>

namespace kestrin::stress {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// An attempt that has failed in the daemon after 42 s is made again after a pause, and an emulated
// machine is slow.
constexpr Time kPatience = seconds(150);
/// Always the same, since queues keep the room that the largest burst has taken.
constexpr std::uint32_t kBurst = 250;
constexpr std::uint8_t kCode = 0x22;
constexpr std::uint8_t kAnswerType = 0x01;

}  // namespace

const char* nameOf(Fault fault) {
  static constexpr std::array<const char*, kFaults> kNames{"close",
                                                           "burst",
                                                           "drop",
                                                           "vanish",
                                                           "adapter off",
                                                           "daemon restart",
                                                           "scan again",
                                                           "adapter off before",
                                                           "daemon restart before",
                                                           "new manager",
                                                           "new in a burst",
                                                           "new manager before"};
  return kNames.at(static_cast<std::size_t>(fault));
}

Rounds::Rounds(std::uint32_t seed, Reader& reader, Helper helper)
    : random_(seed), reader_(reader), helper_(std::move(helper)) {
  startApplication();
}

Rounds::~Rounds() = default;

Fault Rounds::round(bool replace) {
  fault_ = drawFault(replace);
  ++faults.at(static_cast<std::size_t>(fault_));
  disturbIdle();
  connect();
  for (std::size_t frames = 1 + below(3); frames > 0; --frames) exchange();
  endLink();
  waitFor("the end of the link", [this] { return !reader_.linked(); });
  application_->frames = {};
  return fault_;
}

std::size_t Rounds::leftOver() const {
  std::size_t count = 0;
  for (const auto& [manager, application, log, radio] : remains_) {
    count += (manager.expired() ? 0U : 1U) + (application.expired() ? 0U : 1U) +
             (log.expired() ? 0U : 1U) + (radio.expired() ? 0U : 1U);
  }
  return count;
}

// Each fault comes once before one comes again, in an order of the seed's.
Fault Rounds::drawFault(bool replace) {
  const auto replaces = [](Fault fault) {
    return static_cast<std::size_t>(fault) >= kKeepingFaults;
  };
  if (!replace) deck_.erase(std::remove_if(deck_.begin(), deck_.end(), replaces), deck_.end());
  if (deck_.empty()) {
    const std::size_t kinds = replace ? kFaults : kKeepingFaults;
    for (std::size_t i = 0; i < kinds; ++i) deck_.push_back(static_cast<Fault>(i));
    for (std::size_t i = kinds - 1; i > 0; --i) std::swap(deck_[i], deck_[below(i + 1)]);
  }
  const Fault drawn = deck_.back();
  deck_.pop_back();
  return drawn;
}

// What the readers do wakes nobody here, so their lines are looked at now and then.
void Rounds::waitFor(const std::string& what, const std::function<bool()>& done) {
  const Time deadline = loop_->now() + kPatience;
  while (!done()) {
    if (loop_->now() > deadline) throw std::runtime_error("waited in vain for " + what);
    loop_->runUntil(loop_->now() + milliseconds(50), done);
  }
}

void Rounds::order(const std::string& verb, const std::string& arguments) {
  const auto number = reader_.order(verb, arguments);
  waitFor("the order " + verb, [&] { return reader_.answered(number); });
}

void Rounds::startApplication() {
  application_ = Application::make(loop_);
  application_->manager->scanBLE();
  waitFor("the reader to be found", [this] { return application_->found > 0; });
}

void Rounds::dropApplication() {
  remains_.push_back(application_->remains());
  application_.reset();
  // What is due later may hold a manager for a moment.
  waitFor("the manager and all that is its to go", [this] { return leftOver() == 0; });
  remains_.clear();
}

void Rounds::switchAdapter(const std::string& to) {
  helper_("adapter " + to);
  waitFor("the radio to be " + to, [&] { return application_->log->poweredOn == (to == "on"); });
}

void Rounds::disturbIdle() {
  if (fault_ == Fault::adapterOffIdle) {
    switchAdapter("off");
    switchAdapter("on");
  } else if (fault_ == Fault::daemonRestartIdle) {
    restartDaemon();
  } else if (fault_ == Fault::newManagerIdle) {
    replaceApplication();
  }
}

void Rounds::connect(const std::function<void()>& meanwhile) {
  const auto before = application_->plugged;
  application_->manager->connectBLE(application_->manager->pripheral());
  if (meanwhile) meanwhile();
  waitFor("the reader to be plugged in", [&] { return application_->plugged > before; });
}

void Rounds::exchange() {
  std::vector<std::uint8_t> payload(below(100));
  for (auto& byte : payload) byte = static_cast<std::uint8_t>(random_());
  const auto command = buildRcpFrame(0x00, kCode, payload);
  const NSData answer = buildRcpFrame(kAnswerType, kCode, payload).value_or(NSData());
  application_->frames.clear();
  if (!application_->manager->send(command)) throw std::runtime_error("send was refused");
  waitFor("the answer " + answer.description(),
          [&] { return application_->deliveries(answer) > 0; });
  if (application_->frames.size() != 1) throw std::runtime_error("more came than the answer");
  ++framesAnswered;
}

void Rounds::burst() {
  application_->frames.clear();
  order("burst", std::to_string(kBurst) + " 20");
  waitFor("all values of a burst, in order",
          [this] { return application_->burstIsComplete(kBurst); });
  values += kBurst;
}

void Rounds::close() {
  const auto unplugged = application_->unplugged;
  expectLinkLoss([this] { application_->manager->close(); });
  if (application_->unplugged != unplugged + 2) {
    throw std::runtime_error("close and the link's end are not one report each");
  }
}

void Rounds::expectLinkLoss(const std::function<void()>& cause) {
  const auto before = application_->log->disconnections;
  cause();
  waitFor("the report of the link's end",
          [&] { return application_->log->disconnections > before; });
  waitFor("the end of the link", [this] { return !reader_.linked(); });
  if (application_->log->disconnections != before + 1) {
    throw std::runtime_error("the link's end was reported more than once");
  }
}

// The next attempt begins while the reader is still away.
void Rounds::vanish() {
  expectLinkLoss([this] { order("vanish"); });
  connect([this] {
    loop_->runFor(seconds(1 + below(5)));
    order("return");
  });
  exchange();
  close();
}

void Rounds::restartDaemon() {
  helper_("daemon stop");
  waitFor("the radio to be without a daemon", [this] { return !application_->log->poweredOn; });
  helper_("daemon start");
  waitFor("the radio to be back", [this] { return application_->log->poweredOn; });
}

void Rounds::replaceApplication() {
  dropApplication();
  waitFor("the end of the link", [this] { return !reader_.linked(); });
  startApplication();
}

void Rounds::endLink() {
  switch (fault_) {
    case Fault::drop:
      return expectLinkLoss([this] { order("drop"); });
    case Fault::vanish:
      return vanish();
    case Fault::adapterOff:
      expectLinkLoss([this] { switchAdapter("off"); });
      return switchAdapter("on");
    case Fault::daemonRestart:
      return expectLinkLoss([this] { restartDaemon(); });
    case Fault::scanAgain:
      application_->manager->scanBLE();
      return;
    case Fault::newInBurst:
      order("burst", std::to_string(2 * kBurst) + " 20");
      return replaceApplication();
    case Fault::newManager:
      return replaceApplication();
    case Fault::burst:
      burst();
      return close();
    default:
      return close();
  }
}

}  // namespace kestrin::stress
