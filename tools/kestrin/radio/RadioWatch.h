// Watches the radio's state. The manager tells an application nothing of it; a central manager of
// one's own, which does nothing else, does.
//
// Threads: the main run loop's.
// Lifetime: nothing is told after the drop.
// Errors: none.
#pragma once

#include <KestrinBLESDK/platform/Platform.h>

#include <functional>
#include <memory>
#include <string>

namespace kestrin::app {

class RadioWatch {
 public:
  /// `onChange` is told each state that the radio reports, the first one soon.
  RadioWatch(std::shared_ptr<Radio> radio, std::function<void(CBManagerState)> onChange);
  ~RadioWatch();
  RadioWatch(const RadioWatch&) = delete;
  RadioWatch& operator=(const RadioWatch&) = delete;

  [[nodiscard]] CBManagerState state() const;
  /// Whether the radio can not work as things stand: there is none, or it may not be used.
  [[nodiscard]] bool unusable() const;
  /// The state in words, with what to do about it where it is not powered on.
  [[nodiscard]] std::string description() const;

 private:
  class Listener;
  const std::shared_ptr<Radio> radio_;
  const std::shared_ptr<Listener> listener_;
  const std::shared_ptr<CBCentralManager> central_;
};

}  // namespace kestrin::app
