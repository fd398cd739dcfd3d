#include "tools/gateway/commands/ThreadSyncing.h"

#include <utility>

namespace kestrin::gateway {

ThreadSyncing::ThreadSyncing(std::weak_ptr<RunLoop> loop)
    : loop_(std::move(loop)), thread_([this] { work(); }) {}

ThreadSyncing::~ThreadSyncing() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  changed_.notify_one();
  thread_.join();
}

void ThreadSyncing::start(std::shared_ptr<SyncWork> work, std::function<void()> done) {
  {
    const std::lock_guard lock(mutex_);
    next_ = std::move(work);
    done_ = [done = std::move(done), alive = std::weak_ptr<int>(alive_)] {
      if (!alive.expired()) done();
    };
  }
  changed_.notify_one();
}

void ThreadSyncing::work() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return ending_ || next_; });
    if (!next_) return;
    auto work = std::exchange(next_, nullptr);
    auto done = std::exchange(done_, nullptr);
    lock.unlock();
    run(*work);
    work.reset();
    if (const auto loop = loop_.lock()) loop->post(std::move(done));
    lock.lock();
  }
}

}  // namespace kestrin::gateway
