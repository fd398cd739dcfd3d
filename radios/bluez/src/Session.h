// The process's one connection to a message bus, with its thread, shared by every radio on that
// bus: devices have one object each over all radios, and the daemon counts discovery sessions per
// connection.
//
// Threads: all operations from any thread.
// Lifetime: shared by radios and central managers. The last release hands what was asked before to
// the daemon, which takes two seconds at most, and ends the thread; on one of the radio's own
// threads it does not wait for that.
// Errors: a system without threads or descriptors left gives a session that does nothing and says
// so.
#pragma once

#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "BusThread.h"

namespace kestrin::bluez {

class RadioCore;

class Session {
 public:
  using Work = std::function<void(RadioCore&)>;

  /// The session of the bus at `busAddress`, or of the system bus.
  static std::shared_ptr<Session> forBus(const std::optional<std::string>& busAddress);
  /// One that nobody else gets. Its limits and pauses follow `clock`.
  explicit Session(const std::optional<std::string>& busAddress,
                   std::shared_ptr<Clock> clock = std::make_shared<MonotonicClock>());
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// Runs `work` on the radio's thread, in order of posting.
  void post(Work work) const;
  [[nodiscard]] bool works() const noexcept { return core_ != nullptr; }
  /// Tells this bus from others.
  [[nodiscard]] const std::string& bus() const noexcept { return bus_; }

 private:
  const std::string bus_;
  std::shared_ptr<BusThread> thread_;
  std::shared_ptr<RadioCore> core_;
  std::thread runner_;
  std::future<void> ended_;
};

}  // namespace kestrin::bluez
