// Posting events to a run loop that may have ended.
//
// Threads: any. Lifetime: nothing is kept. Errors: none; a loop that has ended gets nothing.
#pragma once

#include <memory>
#include <utility>

#include "KestrinBLESDK/platform/RunLoop.h"

namespace kestrin::bluez {

inline void postTo(const std::weak_ptr<RunLoop>& loop, RunLoop::Task task) {
  if (const auto running = loop.lock()) running->post(std::move(task));
}

}  // namespace kestrin::bluez
