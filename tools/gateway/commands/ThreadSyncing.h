// Brings the log to the disk on a thread of its own, since that waits for the disk.
//
// Threads: see Syncing.h; the thread begins with the object.
// Lifetime: the drop waits for what is under way. The run loop is held weakly.
// Errors: none of its own.
#pragma once

#include <KestrinBLESDK/platform/RunLoop.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "tools/gateway/core/Syncing.h"

namespace kestrin::gateway {

class ThreadSyncing final : public Syncing {
 public:
  explicit ThreadSyncing(std::weak_ptr<RunLoop> loop);
  ~ThreadSyncing() override;
  ThreadSyncing(const ThreadSyncing&) = delete;
  ThreadSyncing& operator=(const ThreadSyncing&) = delete;

  void start(std::shared_ptr<SyncWork> work, std::function<void()> done) override;

 private:
  void work();

  const std::weak_ptr<RunLoop> loop_;
  const std::shared_ptr<int> alive_ = std::make_shared<int>(0);
  std::mutex mutex_;
  std::condition_variable changed_;
  std::shared_ptr<SyncWork> next_;
  std::function<void()> done_;
  bool ending_ = false;
  std::thread thread_;
};

}  // namespace kestrin::gateway
