// When to say how things are: every ten seconds, and when something has changed, but then no more
// than once a second.
//
// Threads: the main run loop's.
// Lifetime: belongs to a gateway.
// Errors: none.
#pragma once

#include "tools/gateway/core/Timer.h"

#include <functional>
#include <memory>
#include <optional>

namespace kestrin::gateway {

class Pulse {
 public:
  Pulse(std::weak_ptr<RunLoop> loop, std::function<void()> beat);

  void start();
  void changed();
  void stop();

 private:
  void beat();
  void armIn(Time pause);

  const std::weak_ptr<RunLoop> loop_;
  const std::function<void()> beat_;
  Timer timer_;
  std::optional<Time> last_;
  bool started_ = false;
  bool hurried_ = false;
};

}  // namespace kestrin::gateway
