#include "tools/gateway/core/Outbox.h"

#include <algorithm>
#include <utility>

namespace kestrin::gateway {
namespace {

constexpr std::size_t kMostLetters = 1000;

Message retained(const std::string& topic, const std::string& payload) {
  Message message;
  message.topic = topic;
  message.payload = payload;
  message.retain = true;
  return message;
}

}  // namespace

void Outbox::retain(const std::string& topic, std::string payload) {
  Topic& kept = topics_[topic];
  kept = {std::move(payload), Stand::waits, 0};
  waits_ = true;
}

void Outbox::send(Message message) {
  if (letters_.size() >= kMostLetters) {
    letters_.pop_front();
    troubles_.note("answers",
                   "more than " + std::to_string(kMostLetters) +
                       " answers to commands wait for the broker; the oldest is given up");
  }
  letters_.push_back({std::move(message)});
  waits_ = true;
}

void Outbox::connected() {
  for (auto& [name, topic] : topics_) topic.stand = Stand::waits;
  disconnected();
}

void Outbox::disconnected() {
  for (auto& [name, topic] : topics_) {
    if (topic.stand == Stand::handedOver) topic.stand = Stand::waits;
  }
  for (Letter& letter : letters_) letter.stand = Stand::waits;
  waits_ = true;
}

bool Outbox::handOver(const Message& message, Stand& stand, PublishId& id) {
  if (stand != Stand::waits) return true;
  const auto given = window_.publish(message);
  if (!given) return false;
  stand = Stand::handedOver;
  id = *given;
  return true;
}

bool Outbox::pump() {
  if (!waits_) return true;
  for (auto& [name, topic] : topics_) {
    if (!handOver(retained(name, topic.payload), topic.stand, topic.id)) return false;
  }
  for (Letter& letter : letters_) {
    if (!handOver(letter.message, letter.stand, letter.id)) return false;
  }
  waits_ = false;
  return true;
}

bool Outbox::acknowledged(PublishId id, const std::optional<std::string>& refused) {
  return takeTopic(id, refused) || takeLetter(id, refused);
}

bool Outbox::takeTopic(PublishId id, const std::optional<std::string>& refused) {
  const auto found = std::find_if(topics_.begin(), topics_.end(), [id](const auto& each) {
    return each.second.stand == Stand::handedOver && each.second.id == id;
  });
  if (found == topics_.end()) return false;
  auto& [name, topic] = *found;
  topic.stand = Stand::done;
  if (refused) {
    troubles_.note("refused " + name, "the broker refuses " + name + ": " + *refused);
  } else if (topic.payload.empty()) {
    const std::string gone = name;
    topics_.erase(found);
    if (removed_) removed_(gone);
  }
  return true;
}

bool Outbox::takeLetter(PublishId id, const std::optional<std::string>& refused) {
  const auto found = std::find_if(letters_.begin(), letters_.end(), [id](const Letter& each) {
    return each.stand == Stand::handedOver && each.id == id;
  });
  if (found == letters_.end()) return false;
  if (refused) {
    troubles_.note("refused answer",
                   "the broker refuses an answer to " + found->message.topic + ": " + *refused);
  }
  letters_.erase(found);
  return true;
}

bool Outbox::isDone() const {
  return letters_.empty() && std::all_of(topics_.begin(), topics_.end(), [](const auto& each) {
           return each.second.stand == Stand::done;
         });
}

}  // namespace kestrin::gateway
