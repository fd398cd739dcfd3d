#include "tools/kestrin/radio/Suspension.h"

#include <KestrinBLESDK/platform/NSNotificationCenter.h>

#include <utility>

namespace kestrin::app {
namespace {

constexpr Time kLook = std::chrono::milliseconds(10);
// What the radio was asked last still has to leave the process.
constexpr Time kLastWords = std::chrono::milliseconds(200);

}  // namespace

Suspension::Suspension(RadioEnvironment& environment, std::function<void()> stop)
    : environment_(environment), stop_(std::move(stop)) {}

Suspension::~Suspension() = default;

void Suspension::later(Time delay, std::function<void()> task) {
  environment_.loop().arm(delay, [waiting = std::weak_ptr(waiting_), task = std::move(task)] {
    if (waiting.lock()) task();
  });
}

void Suspension::request() {
  if (environment_.leaving()) {
    stopNow();
    return;
  }
  waiting_ = std::make_shared<char>();
  begin_ = environment_.loop().now();
  environment_.leave();
  environment_.platform().completed().notificationCenter->postNotificationName_object(
      UIApplicationDidEnterBackgroundNotification);
  stopWhenDown(timeAfter(begin_, kLongestTeardown));
}

void Suspension::stopWhenDown(Time deadline) {
  if (environment_.isDown()) {
    later(kLastWords, [this] { stopNow(); });
  } else if (environment_.loop().now() >= deadline) {
    stopNow();
  } else {
    later(kLook, [this, deadline] { stopWhenDown(deadline); });
  }
}

void Suspension::stopNow() {
  stop_();
  continued();
}

void Suspension::continued() {
  if (!environment_.leaving()) return;
  waiting_ = std::make_shared<char>();
  // Virtual time stands still within a turn; the next one knows how long the stop was.
  later(Time::zero(), [this] {
    environment_.addTimeAway(environment_.loop().now() - begin_);
    environment_.comeBack();
  });
}

}  // namespace kestrin::app
