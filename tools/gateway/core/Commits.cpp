#include "tools/gateway/core/Commits.h"

#include "tools/gateway/message/Messages.h"

#include <algorithm>

namespace kestrin::gateway {

Commits::Commits(Log& log, Troubles& troubles, const std::vector<std::string>& consumers,
                 const std::vector<std::string>& webhooks)
    : log_(log), troubles_(troubles) {
  declare(consumers, webhooks);
}

void Commits::declare(const std::vector<std::string>& consumers,
                      const std::vector<std::string>& webhooks) {
  commits_.clear();
  for (const std::string& each : consumers) declareOne(each, false);
  for (const std::string& each : webhooks) declareOne(each, true);
  for (const auto& [name, number] : log_.kept()) {
    // What the gateway keeps there for itself is not named as a consumer can be.
    if (isPlainName(name) && !commits_.contains(name)) log_.drop(name);
  }
}

void Commits::declareOne(const std::string& name, bool isWebhook) {
  const auto kept = log_.kept();
  const auto known =
      std::find_if(kept.begin(), kept.end(), [&](const auto& each) { return each.first == name; });
  const RecordNumber number = known == kept.end() ? 0 : known->second;
  // What is not in the log cannot have been committed.
  commits_[name] = {std::clamp(number, log_.forgotten(), log_.next() - 1), isWebhook};
}

std::optional<std::string> Commits::whyNot(const std::string& consumer, const LogIdentity& log,
                                           RecordNumber number, RecordNumber published) const {
  if (!commits_.contains(consumer)) {
    return "it is not declared; add it to the configuration's consumers, or have it commit nothing";
  }
  if (commits_.at(consumer).isWebhook) return "it is a webhook, which commits by its answers";
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
  RecordNumber& known = commits_[consumer].number;
  if (commit->number <= known) return false;
  known = commit->number;
  log_.keep(consumer, known);
  return true;
}

bool Commits::answered(const std::string& webhook, RecordNumber number) {
  const auto found = commits_.find(webhook);
  if (found == commits_.end() || number <= found->second.number) return false;
  found->second.number = number;
  log_.keep(webhook, number);
  return true;
}

std::optional<RecordNumber> Commits::lowestOf(bool isWebhook) const {
  std::optional<RecordNumber> lowest;
  for (const auto& [name, stand] : commits_) {
    if (stand.isWebhook != isWebhook) continue;
    lowest = std::min(lowest.value_or(stand.number), stand.number);
  }
  return lowest;
}

std::vector<std::pair<std::string, RecordNumber>> Commits::all() const {
  std::vector<std::pair<std::string, RecordNumber>> all;
  for (const auto& [name, stand] : commits_) all.emplace_back(name, stand.number);
  return all;
}

std::vector<std::pair<std::string, RecordNumber>> Commits::ofConsumers() const {
  auto consumers = all();
  std::erase_if(consumers, [this](const auto& each) { return commits_.at(each.first).isWebhook; });
  return consumers;
}

RecordNumber Commits::of(const std::string& name) const { return commits_.at(name).number; }

}  // namespace kestrin::gateway
