#include "tools/gateway/core/Commits.h"

#include "tools/gateway/message/Messages.h"

#include <algorithm>

namespace kestrin::gateway {

Commits::Commits(Log& log, Troubles& troubles, const std::vector<std::string>& consumers)
    : log_(log), troubles_(troubles) {
  declare(consumers);
}

void Commits::declare(const std::vector<std::string>& consumers) {
  const auto kept = log_.kept();
  commits_.clear();
  for (const std::string& consumer : consumers) {
    const auto known = std::find_if(kept.begin(), kept.end(),
                                    [&](const auto& each) { return each.first == consumer; });
    const RecordNumber number = known == kept.end() ? 0 : known->second;
    // What is not in the log cannot have been committed.
    commits_[consumer] = std::clamp(number, log_.forgotten(), log_.next() - 1);
  }
  for (const auto& [name, number] : kept) {
    // What the gateway keeps there for itself is not named as a consumer can be.
    if (isPlainName(name) && !commits_.contains(name)) log_.drop(name);
  }
}

std::optional<std::string> Commits::whyNot(const std::string& consumer, const LogIdentity& log,
                                           RecordNumber number, RecordNumber published) const {
  if (!commits_.contains(consumer)) {
    return "it is not declared; add it to the configuration's consumers, or have it commit nothing";
  }
  if (log != log_.identity()) {
    return "it is of the log " + log + ", and this one is " + log_.identity();
  }
  if (number > published) {
    return "its number " + std::to_string(number) + " was not published yet, the highest is " +
           std::to_string(published);
  }
  return std::nullopt;
}

bool Commits::take(const std::string& consumer, std::string_view payload, RecordNumber published) {
  // The retained message was removed.
  if (payload.empty()) return false;
  const std::string what = "commit " + consumer;
  const std::string ignored = "the commit of the consumer " + consumer + " is ignored: ";
  std::string error;
  const auto commit = commitOf(payload, error);
  if (!commit) {
    troubles_.note(what, ignored + error);
    return false;
  }
  if (const auto why = whyNot(consumer, commit->log, commit->number, published)) {
    troubles_.note(what, ignored + *why);
    return false;
  }
  RecordNumber& known = commits_[consumer];
  if (commit->number <= known) return false;
  known = commit->number;
  log_.keep(consumer, known);
  return true;
}

std::optional<RecordNumber> Commits::lowest() const {
  std::optional<RecordNumber> lowest;
  for (const auto& [consumer, number] : commits_)
    lowest = std::min(lowest.value_or(number), number);
  return lowest;
}

std::vector<std::pair<std::string, RecordNumber>> Commits::all() const {
  return {commits_.begin(), commits_.end()};
}

}  // namespace kestrin::gateway
