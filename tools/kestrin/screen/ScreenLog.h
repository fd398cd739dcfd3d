// The library's log on the way to a screen, which fetches it when it is drawn.
//
// Threads: any. Lifetime: shared by the platform that writes it and the screen.
// Errors: of lines that nobody fetches only the last ones are kept.
#pragma once

#include <KestrinBLESDK/platform/NSLog.h>

#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

namespace kestrin::app {

class ScreenLog final : public NSLogSink {
 public:
  static constexpr std::size_t kMostLines = 100;

  /// `also` gets every line too; null for nobody.
  explicit ScreenLog(std::shared_ptr<NSLogSink> also) : also_(std::move(also)) {}
  void write(std::string_view line) noexcept override {
    if (also_) also_->write(line);
    const std::scoped_lock lock(mutex_);
    lines_.emplace_back(line);
    if (lines_.size() > kMostLines) lines_.pop_front();
  }
  /// The lines since the last call.
  std::deque<std::string> take() {
    const std::scoped_lock lock(mutex_);
    return std::exchange(lines_, {});
  }

 private:
  const std::shared_ptr<NSLogSink> also_;
  std::mutex mutex_;
  std::deque<std::string> lines_;
};

}  // namespace kestrin::app
