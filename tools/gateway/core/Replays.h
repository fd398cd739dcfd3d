// Who asks for what was published to be published again, so that many who ask at once, or one who
// asks all the time, bring no more than one new beginning a second.
//
// Threads: the main run loop's.
// Lifetime: belongs to a gateway.
// Errors: none.
#pragma once

#include "tools/gateway/core/Timer.h"
#include "tools/gateway/log/Log.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace kestrin::gateway {

class Replays {
 public:
  Replays(std::weak_ptr<RunLoop> loop, std::function<void(RecordNumber)> begin)
      : begin_(std::move(begin)), timer_(std::move(loop)) {}

  void ask(RecordNumber from) {
    asked_ = std::min(asked_.value_or(from), from);
    if (!timer_.isArmed()) beginAsked();
  }

 private:
  void beginAsked() {
    if (!asked_) return;
    timer_.arm(std::chrono::seconds(1), [this] { beginAsked(); });
    begin_(*std::exchange(asked_, std::nullopt));
  }

  const std::function<void(RecordNumber)> begin_;
  Timer timer_;
  std::optional<RecordNumber> asked_;
};

}  // namespace kestrin::gateway
