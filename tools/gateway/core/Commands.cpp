#include "tools/gateway/core/Commands.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace kestrin::gateway {
namespace {

constexpr std::size_t kMostWaiting = 64;
constexpr std::size_t kLongestCorrelation = 256;
constexpr std::uint32_t kUsualExpirySeconds = 30;
constexpr std::size_t kLongestTopic = 1024;
constexpr char kExpired[] = "it has expired before the reader was plugged in";

/// Whether a message can be published there.
bool isTopic(const std::string& topic) {
  return topic.size() <= kLongestTopic &&
         topic.find_first_of(std::string_view("+#\0", 3)) == std::string::npos;
}

}  // namespace

Commands::Commands(std::weak_ptr<RunLoop> loop, Handlers handlers)
    : handlers_(std::move(handlers)), expiry_(std::move(loop)) {}

std::optional<std::string> Commands::whyNot(const Message& message) const {
  if (message.retain) return "a command must not be retained, or it would be carried out again";
  if (message.correlationData && message.correlationData->size() > kLongestCorrelation) {
    return "its correlation data has " + std::to_string(message.correlationData->size()) +
           " bytes; at most " + std::to_string(kLongestCorrelation) + " are taken";
  }
  if (!isTopic(message.responseTopic)) {
    return "its response topic has a wildcard or a zero byte, or more than " +
           std::to_string(kLongestTopic) + " bytes";
  }
  if (message.expirySeconds && *message.expirySeconds == 0) return kExpired;
  return std::nullopt;
}

void Commands::take(const std::string& part, const Message& message) {
  // A retained command was removed.
  if (message.retain && message.payload.empty()) return;
  if (const auto why = whyNot(message)) return refuse(message, *why);
  std::string error;
  auto command = commandOf(message.payload, error);
  if (!command) return refuse(message, error);
  const auto reader = handlers_.find(part);
  if (!reader) return refuse(message, "this gateway has no reader " + part);
  if (isRepeat(*reader, *command, message)) return;
  enqueue(*reader, std::move(*command), message);
}

bool Commands::isRepeat(const std::string& reader, const Command& command, const Message& message) {
  if (!message.correlationData) return false;
  const auto* const known = memory_.find(*message.correlationData);
  if (known == nullptr) return false;
  if (known->reader != reader || known->bytes != command.bytes) {
    refuse(message, "its correlation data was another command's; each needs its own");
  } else if (known->answer) {
    reply(message.responseTopic, message.correlationData, *known->answer);
  }
  return true;
}

void Commands::enqueue(const std::string& reader, Command command, const Message& message) {
  Queue& queue = queues_[reader];
  if (queue.size() >= kMostWaiting) {
    return refuse(message, std::to_string(kMostWaiting) + " commands wait for the reader already");
  }
  const std::chrono::seconds expiry(message.expirySeconds.value_or(kUsualExpirySeconds));
  const Time now = handlers_.now();
  if (message.correlationData) {
    memory_.remember(*message.correlationData, {reader, command.bytes}, now);
  }
  queue.push_back({std::move(command.bytes), message.responseTopic, message.correlationData,
                   timeAfter(now, expiry)});
  sendNext(reader);
  armExpiry();
}

void Commands::readerChanged(const std::string& reader) { sendNext(reader); }

void Commands::sendNext(const std::string& reader) {
  const auto found = queues_.find(reader);
  if (found == queues_.end() || found->second.empty()) return;
  Waiting& first = found->second.front();
  if (first.handedOver || !handlers_.isPluggedIn(reader)) return;
  if (first.until <= handlers_.now()) return;
  first.handedOver = true;
  handlers_.send(reader, first.bytes,
                 [this, reader, alive = std::weak_ptr<int>(alive_)](const auto& why) {
                   if (!alive.expired()) sent(reader, why);
                 });
}

void Commands::sent(const std::string& reader, const std::optional<std::string>& why) {
  const auto found = queues_.find(reader);
  if (found == queues_.end() || found->second.empty()) return;
  const Waiting done = std::move(found->second.front());
  found->second.pop_front();
  answer(done, !why, why.value_or(""));
  expire();
  sendNext(reader);
}

void Commands::expire() {
  for (auto& [reader, queue] : queues_) expireIn(reader, queue);
  armExpiry();
}

void Commands::expireIn(const std::string& reader, Queue& queue) {
  const Time now = handlers_.now();
  Queue staying;
  for (Waiting& each : std::exchange(queue, {})) {
    if (each.handedOver || each.until > now) {
      staying.push_back(std::move(each));
    } else {
      answer(each, false, kExpired);
    }
  }
  queue = std::move(staying);
  sendNext(reader);
}

void Commands::armExpiry() {
  std::optional<Time> next;
  for (const auto& [reader, queue] : queues_) {
    for (const Waiting& each : queue) {
      if (!each.handedOver) next = std::min(next.value_or(each.until), each.until);
    }
  }
  expiry_.cancel();
  if (next) expiry_.arm(std::max(*next - handlers_.now(), Time::zero()), [this] { expire(); });
}

void Commands::readerRemoved(const std::string& reader) {
  endAll(reader, "the reader was taken out of the configuration");
  queues_.erase(reader);
}

void Commands::stop() {
  for (const auto& [reader, queue] : queues_) endAll(reader, "the gateway stops");
  queues_.clear();
}

void Commands::endAll(const std::string& reader, const std::string& why) {
  const auto found = queues_.find(reader);
  if (found == queues_.end()) return;
  for (const Waiting& each : found->second) answer(each, false, why);
}

void Commands::answer(const Waiting& to, bool handed, const std::string& why) {
  const std::string text = commandAnswer(handed, why);
  if (to.correlation) memory_.answered(*to.correlation, text);
  if (to.responseTopic.empty() && !handed) handlers_.complain("a command was not sent: " + why);
  reply(to.responseTopic, to.correlation, text);
}

void Commands::refuse(const Message& message, const std::string& why) {
  if (message.responseTopic.empty() || !isTopic(message.responseTopic)) {
    handlers_.complain("a command was refused: " + why);
  }
  reply(message.responseTopic, message.correlationData, commandAnswer(false, why));
}

void Commands::reply(const std::string& topic, const std::optional<std::string>& correlation,
                     const std::string& text) {
  if (topic.empty() || !isTopic(topic)) return;
  Message message;
  message.topic = topic;
  message.payload = text;
  message.correlationData = correlation;
  message.contentType = "application/json";
  handlers_.answer(std::move(message));
}

}  // namespace kestrin::gateway
