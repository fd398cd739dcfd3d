#include "tools/gateway/core/Troubles.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace kestrin::gateway {
namespace {

constexpr Time kNoteIsShown = std::chrono::minutes(10);
// Names come from outside too, those of consumers for example.
constexpr std::size_t kMostTroubles = 200;
// With what else is in the health, it stays below the 16 KiB that whoever reads it counts on.
constexpr std::size_t kMostBytes = std::size_t{8} << 10U;
constexpr std::size_t kLongestLine = 1024;

}  // namespace

void Troubles::set(const std::string& what, Line line) { put(what, std::move(line), std::nullopt); }

void Troubles::note(const std::string& what, Line line) {
  put(what, std::move(line), timeAfter(handlers_.now(), kNoteIsShown));
}

void Troubles::put(const std::string& what, Line line, std::optional<Time> until) {
  line.weight = Weight::warning;
  line.reason = what.substr(0, what.find(' '));
  const auto found = all_.find(what);
  const bool isNews = found == all_.end() || found->second.line != line.text;
  if (found == all_.end()) makeRoom();
  all_.insert_or_assign(what, Trouble{line.text, until});
  if (!isNews) return;
  if (handlers_.say) handlers_.say(line);
  if (handlers_.onChange) handlers_.onChange();
}

void Troubles::makeRoom() {
  if (all_.size() < kMostTroubles) return;
  const auto oldest = std::min_element(all_.begin(), all_.end(), [](const auto& a, const auto& b) {
    return a.second.until.value_or(Time::max()) < b.second.until.value_or(Time::max());
  });
  if (oldest->second.until) all_.erase(oldest);
}

void Troubles::clear(const std::string& what) {
  if (all_.erase(what) == 0) return;
  if (handlers_.onChange) handlers_.onChange();
}

std::vector<std::string> Troubles::lines() {
  const Time now = handlers_.now();
  std::erase_if(all_, [&](const auto& each) { return each.second.until.value_or(now) < now; });
  std::vector<std::string> lines;
  std::size_t bytes = 0;
  for (const auto& [what, trouble] : all_) {
    lines.push_back(trouble.line.substr(0, kLongestLine));
    bytes += lines.back().size();
    if (bytes > kMostBytes) break;
  }
  if (lines.size() < all_.size()) {
    lines.push_back("and " + std::to_string(all_.size() - lines.size()) +
                    " more, which the gateway's own lines name");
  }
  return lines;
}

}  // namespace kestrin::gateway
