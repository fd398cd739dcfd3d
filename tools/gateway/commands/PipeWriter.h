// Writes to a pipe, a terminal or a file without ever waiting for who reads it.
//
// Threads: one, which turns the loop. Lifetime: drop it before the loop; the descriptor stays the
// caller's.
// Errors: `onGone` once, when nobody reads any more or nothing can be written.
#pragma once

#include <KestrinBLESDK/platform/MainRunLoop.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace kestrin::gateway {

class PipeWriter {
 public:
  struct Handlers {
    std::function<void()> onWritten;  ///< Everything that was added is written.
    /// The reader of a pipe has gone where the error says so (EPIPE).
    std::function<void(std::error_code)> onGone;
  };
  PipeWriter(MainRunLoop& loop, int descriptor, Handlers handlers)
      : loop_(loop), descriptor_(descriptor), handlers_(std::move(handlers)) {}
  ~PipeWriter() { rest(); }
  PipeWriter(const PipeWriter&) = delete;
  PipeWriter& operator=(const PipeWriter&) = delete;

  void add(std::string_view text);
  [[nodiscard]] bool isEmpty() const { return at_ == text_.size(); }
  /// Looks whether anybody still reads.
  void look();
  /// Writes what there is room for at once.
  void drain();

 private:
  void writeSome();
  void gone(int number);
  void rest();

  MainRunLoop& loop_;
  const int descriptor_;
  const Handlers handlers_;
  std::string text_;
  std::size_t at_ = 0;
  bool isGone_ = false;
  std::optional<MainRunLoop::WatchId> watch_;
};

}  // namespace kestrin::gateway
