#include "tools/gateway/log/SyncThread.h"

#include "tools/gateway/log/SyncWork.h"

namespace kestrin::gateway {

SyncThread::SyncThread() : thread_([this] { loop(); }) {}

SyncThread::~SyncThread() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  changed_.notify_one();
  thread_.join();
}

void SyncThread::start(std::shared_ptr<SyncWork> work, std::function<void()> done) {
  {
    const std::lock_guard lock(mutex_);
    tasks_.emplace_back(std::move(work), std::move(done));
  }
  changed_.notify_one();
}

void SyncThread::loop() {
  while (true) {
    Task task;
    {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [this] { return ending_ || !tasks_.empty(); });
      if (tasks_.empty()) return;
      task = std::move(tasks_.front());
      tasks_.pop_front();
    }
    task.first->run();
    if (task.second) task.second();
  }
}

}  // namespace kestrin::gateway
