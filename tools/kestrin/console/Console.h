// Where this application prints: lines of results on standard output, lines for a person on
// standard error, and on a terminal one live line that is overwritten.
//
// Threads: one at a time.
// Lifetime: the descriptors stay the caller's; what is still held is written at the end.
// Errors: a failed write is remembered, see `outputError`; the rest of the output is dropped.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace kestrin::app {

class Console {
 public:
  Console(int output, int errors);
  ~Console();
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  /// One line of results, written at once, or later while `holdOutput` is in effect.
  void line(std::string_view text);
  /// One line for a person, "kestrin: " in front.
  void note(std::string_view text);
  /// From now on notes go to `taker` instead of standard error; an empty one ends that.
  void redirectNotes(std::function<void(std::string_view)> taker) { noteTaker_ = std::move(taker); }
  /// Gathers lines into large writes from now on, for output of any length.
  void holdOutput() { holding_ = true; }
  /// Writes what is held.
  void flush();
  /// Shows `text` as the live line; nothing where standard error is not a terminal.
  void live(std::string_view text);
  /// Whether `live` shows anything.
  [[nodiscard]] bool hasLiveLine() const noexcept { return terminal_; }
  /// Why standard output could not be written; absent while it could.
  [[nodiscard]] const std::optional<std::error_code>& outputError() const noexcept {
    return outputError_;
  }

 private:
  void eraseLive();

  const int output_;
  const int errors_;
  const bool terminal_;
  std::function<void(std::string_view)> noteTaker_;
  bool holding_ = false;
  bool liveShown_ = false;
  std::string held_;
  std::optional<std::error_code> outputError_;
};

}  // namespace kestrin::app
