// One ordered record of everything that a test sees: requests, callbacks, log lines and events, a
// readable line each. A test compares it with a literal text.
//
// Threads: any thread. Lifetime: shared by everything that records. Errors: none.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "KestrinBLESDK/platform/Clock.h"

namespace kestrin::test {

/// Seconds as a person writes them: `2`, `0.5`, `0.05`; exact to the nanosecond.
std::string secondsText(double seconds);

class Transcript {
 public:
  explicit Transcript(std::shared_ptr<const Clock> clock) : clock_(std::move(clock)) {}

  void add(std::string line);
  /// The lines since they were last taken, after a line end of its own, so that it compares with a
  /// raw text that begins on a line of its own.
  std::string take();
  /// The same with a line `at 2.5 s` wherever the clock has moved since the line before. The
  /// clock's beginning is not announced.
  std::string takeTimed();
  /// Of the lines since they were last taken, those that begin with `beginning`.
  std::string takeThoseThatBegin(std::string_view beginning);

 private:
  struct Entry {
    Time time;
    std::string line;
  };
  std::vector<Entry> takeEntries();

  const std::shared_ptr<const Clock> clock_;
  std::mutex mutex_;
  std::vector<Entry> entries_;
  Time announced_{0};
};

}  // namespace kestrin::test
