#include "support/Transcript.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <utility>

namespace kestrin::test {

std::string secondsText(double seconds) {
  std::array<char, 64> digits{};
  std::snprintf(digits.data(), digits.size(), "%.9f", seconds);
  std::string text = digits.data();
  text.erase(text.find_last_not_of('0') + 1);
  if (text.ends_with('.')) text.pop_back();
  return text;
}

void Transcript::add(std::string line) {
  const std::scoped_lock lock(mutex_);
  entries_.push_back({clock_->now(), std::move(line)});
}

std::vector<Transcript::Entry> Transcript::takeEntries() {
  const std::scoped_lock lock(mutex_);
  return std::exchange(entries_, {});
}

std::string Transcript::take() { return takeThoseThatBegin(""); }

std::string Transcript::takeThoseThatBegin(std::string_view beginning) {
  std::string text = "\n";
  for (const auto& entry : takeEntries()) {
    if (entry.line.starts_with(beginning)) text += entry.line + '\n';
  }
  return text;
}

std::string Transcript::takeTimed() {
  std::string text = "\n";
  for (const auto& entry : takeEntries()) {
    if (entry.time != announced_) {
      text += "at " + secondsText(std::chrono::duration<double>(entry.time).count()) + " s\n";
      announced_ = entry.time;
    }
    text += entry.line + '\n';
  }
  return text;
}

}  // namespace kestrin::test
