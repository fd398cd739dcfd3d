// Brings the log to the disk on a thread of its own, and says so on the main run loop.
//
// Threads: see Syncing.h.
// Lifetime: the drop waits for what is under way. The run loop is held weakly.
// Errors: none of its own.
#pragma once

#include <KestrinBLESDK/platform/RunLoop.h>

#include <functional>
#include <memory>
#include <utility>

#include "tools/gateway/core/Syncing.h"
#include "tools/gateway/log/SyncThread.h"

namespace kestrin::gateway {

class ThreadSyncing final : public Syncing {
 public:
  explicit ThreadSyncing(std::weak_ptr<RunLoop> loop) : loop_(std::move(loop)) {}

  void start(std::shared_ptr<SyncWork> work, std::function<void()> done) override {
    thread_.start(std::move(work), [loop = loop_, done = guarded(std::move(done))]() mutable {
      if (const auto alive = loop.lock()) alive->post(std::move(done));
    });
  }

 private:
  std::function<void()> guarded(std::function<void()> done) {
    return [done = std::move(done), alive = std::weak_ptr<int>(alive_)] {
      if (!alive.expired()) done();
    };
  }

  const std::weak_ptr<RunLoop> loop_;
  const std::shared_ptr<int> alive_ = std::make_shared<int>(0);
  SyncThread thread_;
};

}  // namespace kestrin::gateway
