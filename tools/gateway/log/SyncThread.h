// The thread on which a log is synced, so that its other work never waits for the disk.
//
// Threads: `start` from one thread; `done` is called on the sync thread, with no lock held.
// Lifetime: the end of it waits for the work that was handed over, and for its `done`.
// Errors: none; the work keeps its own.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

namespace kestrin::gateway {

class SyncWork;

class SyncThread {
 public:
  SyncThread();
  ~SyncThread();
  SyncThread(const SyncThread&) = delete;
  SyncThread& operator=(const SyncThread&) = delete;

  /// Runs the work, then calls `done`, which usually posts to the log's own thread.
  void start(std::shared_ptr<SyncWork> work, std::function<void()> done);

 private:
  using Task = std::pair<std::shared_ptr<SyncWork>, std::function<void()>>;
  void loop();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Task> tasks_;
  bool ending_ = false;
  std::thread thread_;
};

}  // namespace kestrin::gateway
