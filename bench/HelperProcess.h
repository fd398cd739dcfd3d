// This program once more, with other words: the other end of what is measured, whose processor time
// must not count.
//
// Threads: one, see ChildProcess.
// Lifetime: destroying it kills the process.
// Errors: a helper that ends with anything but 0 or does not come to its word ends the program.
#pragma once

#include <KestrinBLESDK/platform/MainRunLoop.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "gateway/support/ChildProcess.h"
#include "gateway/support/TestFolder.h"

namespace kestrin::bench {

class HelperProcess {
 public:
  explicit HelperProcess(const std::vector<std::string>& words);

  /// Turns the loop until the helper has printed a line that begins with `word`; returns what
  /// follows in it.
  std::string lineOf(const std::string& word, MainRunLoop& loop);
  std::uint64_t numberOf(const std::string& word, MainRunLoop& loop);
  /// What was printed by `printMoment`.
  std::chrono::steady_clock::time_point momentOf(const std::string& word, MainRunLoop& loop);

 private:
  [[nodiscard]] std::string printedLine(const std::string& word) const;

  const gateway::TestFolder folder_;
  gateway::ChildProcess process_;
};

// For the helper itself.

void printLine(const std::string& word, std::uint64_t number);
/// The clock is the machine's, so that the other process understands it.
void printMoment(const std::string& word, std::chrono::steady_clock::time_point moment);

}  // namespace kestrin::bench
