#include "MainThread.h"

#import <Foundation/Foundation.h>

namespace kestrin::corebluetooth {

void MainThread::post(std::function<void()> task) const {
  if (const auto loop = mainRunLoop_.lock()) loop->post(std::move(task));
}

void MainThread::later(Time delay, std::function<void()> task) const {
  if (const auto loop = mainRunLoop_.lock()) loop->arm(delay, std::move(task));
}

void MainThread::submit(std::function<void()> request) {
  if ([::NSThread isMainThread]) {
    carryOutSubmitted();
    request();
    return;
  }
  {
    const std::scoped_lock lock(mutex_);
    submitted_.push_back(std::move(request));
  }
  post([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->carryOutSubmitted();
  });
}

void MainThread::carryOutSubmitted() {
  std::vector<std::function<void()>> requests;
  {
    const std::scoped_lock lock(mutex_);
    requests.swap(submitted_);
  }
  for (const auto& request : requests) request();
}

}  // namespace kestrin::corebluetooth
