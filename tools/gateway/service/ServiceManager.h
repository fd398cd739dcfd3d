// What the service manager is told: that the gateway is ready, that its main loop turns, how it
// stands, and that it reads its configuration again or ends.
//
// It is told by datagrams to the socket in $NOTIFY_SOCKET. Without that there is nobody to tell.
//
// The watchdog is fed by a timer of the main loop and by nothing else: a loop that is stuck feeds
// nobody, and a broker or a disk that is slow does not keep the loop from turning.
//
// Threads: the main run loop's.
// Lifetime: the loop is held weakly; from the end of this object nothing is told any more.
// Errors: what the manager does not take is lost.
#pragma once

#include "tools/gateway/core/Timer.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kestrin::gateway {

class ServiceManager {
 public:
  /// `standing` says in one line how the gateway stands.
  ServiceManager(std::weak_ptr<RunLoop> loop, std::function<std::string()> standing);
  ServiceManager(const ServiceManager&) = delete;
  ServiceManager& operator=(const ServiceManager&) = delete;

  /// The gateway is ready once the loop turns; from then on the watchdog is fed.
  void started();
  void reloading();
  void reloaded();
  /// From now on the manager is asked for more time, for as long as the loop turns.
  void stopping();

  /// How often the watchdog wants to be fed at least; absent: there is none.
  [[nodiscard]] std::optional<Time> watchdog() const noexcept { return watchdog_; }

 private:
  void ready();
  void beat();
  [[nodiscard]] std::string news();

  const std::function<std::string()> standing_;
  const std::optional<Time> watchdog_;
  const Time pause_;
  Timer timer_;
  std::string said_;
  bool stopping_ = false;
};

}  // namespace kestrin::gateway
