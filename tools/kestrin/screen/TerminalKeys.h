// The keys that are pressed on a terminal, in turns of a run loop.
//
// Threads: the loop's.
// Lifetime: nothing comes after the drop, which a key's own call may be. Drop it before the loop.
// Errors: none; an input that has ended or cannot be read gives no more keys.
#pragma once

#include <KestrinBLESDK/platform/MainRunLoop.h>

#include <functional>
#include <memory>
#include <optional>

namespace kestrin::app {

class TerminalKeys {
 public:
  TerminalKeys(int input, MainRunLoop& loop, std::function<void(char)> onKey);
  ~TerminalKeys();
  TerminalKeys(const TerminalKeys&) = delete;
  TerminalKeys& operator=(const TerminalKeys&) = delete;

 private:
  void take(Readiness found);
  void end();

  const int input_;
  MainRunLoop& loop_;
  /// Shared with the call that runs, so that it is not called after the drop.
  std::shared_ptr<std::function<void(char)>> onKey_;
  std::optional<MainRunLoop::WatchId> watch_;
};

}  // namespace kestrin::app
