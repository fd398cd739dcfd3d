// Who runs the syncing of the log: a thread, or in virtual time a task that comes later.
//
// Threads: `start` is called on the main run loop, and calls `done` there, in a later turn.
// Lifetime: what is under way when the object is dropped ends first, and nobody is called.
// Errors: none of its own; the work keeps them.
#pragma once

#include "tools/gateway/log/Log.h"

#include <functional>
#include <memory>

namespace kestrin::gateway {

class Syncing {
 public:
  Syncing() = default;
  virtual ~Syncing() = default;
  Syncing(const Syncing&) = delete;
  Syncing& operator=(const Syncing&) = delete;

  /// Runs the work, then calls `done`. One at a time: not called again before `done`.
  virtual void start(std::shared_ptr<SyncWork> work, std::function<void()> done) = 0;
};

}  // namespace kestrin::gateway
