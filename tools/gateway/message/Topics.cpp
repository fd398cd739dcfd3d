#include "tools/gateway/message/Messages.h"

namespace kestrin::gateway {
namespace {

constexpr std::string_view kEscaped = "0123456789ABCDEF";
constexpr std::string_view kEmptyPart = "%";

bool standsForItself(char c) {
  const bool letter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
  return letter || (c >= '0' && c <= '9') || c == ':' || c == '_' || c == '.' || c == '-';
}

/// What stands in the topic between `begin` and `end`, in one level; absent: it is another topic.
std::optional<std::string_view> levelBetween(std::string_view topic, std::string_view begin,
                                             std::string_view end) {
  if (topic.size() < begin.size() + end.size() || !topic.starts_with(begin) ||
      !topic.ends_with(end)) {
    return std::nullopt;
  }
  const auto level = topic.substr(begin.size(), topic.size() - begin.size() - end.size());
  if (level.empty() || level.find('/') != std::string_view::npos) return std::nullopt;
  return level;
}

}  // namespace

std::string topicPart(std::string_view reader) {
  if (reader.empty()) return std::string(kEmptyPart);
  std::string part;
  part.reserve(reader.size());
  for (const char c : reader) {
    if (standsForItself(c)) {
      part += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    part += '%';
    part += kEscaped[byte >> 4U];
    part += kEscaped[byte & 0x0FU];
  }
  return part;
}

std::optional<std::string> readerOfTopicPart(std::string_view part) {
  std::string reader;
  for (std::size_t at = 0; at < part.size() && part != kEmptyPart; ++at) {
    if (part[at] != '%') {
      reader += part[at];
      continue;
    }
    if (at + 2 >= part.size()) return std::nullopt;
    const auto high = kEscaped.find(part[at + 1]);
    const auto low = kEscaped.find(part[at + 2]);
    if (high == std::string_view::npos || low == std::string_view::npos) return std::nullopt;
    reader += static_cast<char>(high << 4U | low);
    at += 2;
  }
  // One reader has one topic, or a command to it could be two.
  if (topicPart(reader) != part) return std::nullopt;
  return reader;
}

Topics::Topics(std::string gateway) : base_("kestrin/v1/" + std::move(gateway) + '/') {}

std::string Topics::state() const { return base_ + "state"; }
std::string Topics::info() const { return base_ + "info"; }
std::string Topics::gap() const { return base_ + "gap"; }
std::string Topics::health() const { return base_ + "health"; }
std::string Topics::replay() const { return base_ + "replay"; }

std::string Topics::ofReader(std::string_view reader, std::string_view what) const {
  constexpr std::string_view kReaders = "reader/";
  const std::string part = topicPart(reader);
  std::string topic;
  topic.reserve(base_.size() + kReaders.size() + part.size() + what.size());
  return topic.append(base_).append(kReaders).append(part).append(what);
}

std::string Topics::readerState(std::string_view reader) const {
  return ofReader(reader, "/state");
}

std::string Topics::readerFrame(std::string_view reader) const {
  return ofReader(reader, "/frame");
}

std::string Topics::readerCommand(std::string_view reader) const {
  return ofReader(reader, "/command");
}

std::string Topics::commit(std::string_view consumer) const {
  return base_ + "commit/" + topicPart(consumer);
}

std::vector<std::string> Topics::filters() const {
  return {base_ + "reader/+/command", base_ + "commit/+", replay()};
}

std::vector<std::string> Topics::deliveryFilters() const {
  return {base_ + "reader/+/frame", gap()};
}

std::optional<std::string> Topics::commandedReader(std::string_view topic) const {
  const auto level = levelBetween(topic, base_ + "reader/", "/command");
  return level ? readerOfTopicPart(*level) : std::nullopt;
}

std::optional<std::string> Topics::committingConsumer(std::string_view topic) const {
  const auto level = levelBetween(topic, base_ + "commit/", "");
  if (!level || !isPlainName(*level)) return std::nullopt;
  return std::string(*level);
}

}  // namespace kestrin::gateway
