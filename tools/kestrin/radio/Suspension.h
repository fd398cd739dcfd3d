// Leaving the foreground and coming back: a process that is suspended from its terminal, or whose
// machine goes to sleep, cannot hold up its end of a link. So the link is torn down before, as for
// any application that enters the background, and made again afterwards.
//
// Threads: the thread that turns the environment's loop.
// Lifetime: drop it before its environment.
// Errors: a link that is not down in time is left as it is.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "tools/kestrin/radio/RadioEnvironment.h"

namespace kestrin::app {

class Suspension {
 public:
  /// How long the teardown may take.
  static constexpr Time kLongestTeardown = std::chrono::seconds(3);

  /// `stop` stops the process and returns when it has been continued.
  Suspension(RadioEnvironment& environment, std::function<void()> stop);
  ~Suspension();
  Suspension(const Suspension&) = delete;
  Suspension& operator=(const Suspension&) = delete;

  /// Posts the application-entered-background notification, lets the loop finish what comes of it,
  /// and stops the process. While that is under way a further call stops it at once.
  void request();
  /// The process goes on after a stop, whoever stopped it.
  void continued();

 private:
  void stopWhenDown(Time deadline);
  void stopNow();
  void later(Time delay, std::function<void()> task);

  RadioEnvironment& environment_;
  const std::function<void()> stop_;
  Time begin_{};
  /// Replaced when what was waited for no longer matters.
  std::shared_ptr<char> waiting_;
};

}  // namespace kestrin::app
