// The keys that are pressed on a terminal, as tasks on a run loop.
//
// Threads: made and dropped on the loop's thread; a thread of its own waits for keys.
// Lifetime: nothing comes after the drop. Drop it before the loop.
// Errors: none; an input that has ended or can not be read gives no more keys.
#pragma once

#include <KestrinBLESDK/platform/MainRunLoop.h>

#include <functional>
#include <memory>
#include <thread>

namespace kestrin::app {

class TerminalKeys {
 public:
  TerminalKeys(int input, MainRunLoop& loop, std::function<void(char)> onKey);
  ~TerminalKeys();
  TerminalKeys(const TerminalKeys&) = delete;
  TerminalKeys& operator=(const TerminalKeys&) = delete;

 private:
  void wait();

  const int input_;
  const int end_;
  MainRunLoop& loop_;
  /// Shared with what is posted, so that it is not called after the drop.
  std::shared_ptr<std::function<void(char)>> onKey_;
  std::thread thread_;
};

}  // namespace kestrin::app
