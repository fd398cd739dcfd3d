// A log sink that keeps its lines, so that a test can compare them with the literal texts. What
// else a test wants to see in order with them, a delivery for example, it writes into the same log.
//
// Threads: any. Lifetime: the lines live as long as the log. Errors: none.
#pragma once

#include <algorithm>
#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "KestrinBLESDK/platform/NSLog.h"

namespace kestrin::test {

class RecordingLog final : public NSLogSink {
 public:
  [[nodiscard]] bool isListening() const noexcept override {
    const std::scoped_lock lock(mutex_);
    return listening_;
  }
  void write(std::string_view line) noexcept override {
    const std::scoped_lock lock(mutex_);
    lines_.emplace_back(line);
  }

  void setListening(bool listening) {
    const std::scoped_lock lock(mutex_);
    listening_ = listening;
  }
  /// A copy of every line so far, in order.
  [[nodiscard]] std::vector<std::string> lines() const {
    const std::scoped_lock lock(mutex_);
    return lines_;
  }
  /// Every line so far; the log is empty afterwards.
  std::vector<std::string> take() {
    const std::scoped_lock lock(mutex_);
    return std::exchange(lines_, {});
  }
  /// How often exactly this line was written.
  [[nodiscard]] std::size_t count(std::string_view line) const {
    const std::scoped_lock lock(mutex_);
    return static_cast<std::size_t>(std::ranges::count(lines_, line));
  }

 private:
  mutable std::mutex mutex_;
  bool listening_ = true;
  std::vector<std::string> lines_;
};

}  // namespace kestrin::test
