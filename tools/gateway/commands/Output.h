// Where the program prints: lines of results on standard output, lines for a person on standard
// error.
//
// Threads: one at a time.
// Lifetime: the descriptors stay the caller's; what is still held is written at the end.
// Errors: a failed write is remembered, see `error`; the rest of the output is dropped.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "tools/gateway/core/Line.h"

namespace kestrin::gateway {

/// Writes all of `text`, waiting where there is no room; why not, where that cannot be done.
std::optional<std::error_code> writeAll(int descriptor, std::string_view text);

class Output {
 public:
  Output(int output, int errors) : output_(output), errors_(errors) {}
  ~Output() { flush(); }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  /// One line of results, which is held until `flush` or until there is much.
  void line(std::string_view text);
  void flush();
  /// Brings what was printed to the disk where standard output is a file.
  void sync();
  /// One line for a person, "kestrin-gateway: " in front. Where nobody reads the lines of a pipe,
  /// they are dropped once it is full, and counted in the next one that can be written.
  void note(const Line& line);
  /// Takes the lines for a person in place of standard error; false: it could not.
  using Journal = std::function<bool(const Line&)>;
  void noteIn(Journal journal) { journal_ = std::move(journal); }
  /// Why standard output could not be written; absent while it could.
  [[nodiscard]] const std::optional<std::error_code>& error() const noexcept { return error_; }

 private:
  void noteOnErrors(const std::string& text);

  const int output_;
  const int errors_;
  Journal journal_;
  std::string held_;
  std::size_t unwritten_ = 0;
  bool isTorn_ = false;  // Whether the last line ends in its middle.
  std::optional<std::error_code> error_;
};

}  // namespace kestrin::gateway
