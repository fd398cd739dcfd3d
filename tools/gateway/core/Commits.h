// Up to where each declared consumer has what it needs, kept with the log over restarts.
//
// Threads: the main run loop's.
// Lifetime: belongs to a gateway; log and troubles outlive it.
// Errors: a commit that cannot be right is ignored, with a trouble.
#pragma once

#include "tools/gateway/core/Troubles.h"
#include "tools/gateway/log/Log.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kestrin::gateway {

class Commits {
 public:
  Commits(Log& log, Troubles& troubles, const std::vector<std::string>& consumers,
          const std::vector<std::string>& webhooks = {});

  /// From now on these are the declared ones: consumers commit by the broker, and webhooks by their
  /// answers. What others have committed is dropped.
  void declare(const std::vector<std::string>& consumers, const std::vector<std::string>& webhooks);
  /// Takes the message of a commit's topic. `published` is the highest number that any consumer can
  /// have. True when a declared consumer's commit has moved.
  bool take(const std::string& consumer, std::string_view payload, RecordNumber published);

  /// A webhook has answered that it has everything up to `number`. True when that is further than
  /// before.
  bool answered(const std::string& webhook, RecordNumber number);

  /// Of those at the broker; absent without a declared consumer.
  [[nodiscard]] std::optional<RecordNumber> lowest() const { return lowestOf(false); }
  [[nodiscard]] std::optional<RecordNumber> lowestOfWebhooks() const { return lowestOf(true); }
  /// The declared ones; who has committed nothing yet is where the log was forgotten up to.
  [[nodiscard]] std::vector<std::pair<std::string, RecordNumber>> all() const;
  /// Those at the broker.
  [[nodiscard]] std::vector<std::pair<std::string, RecordNumber>> ofConsumers() const;
  [[nodiscard]] RecordNumber of(const std::string& name) const;

 private:
  struct Stand {
    RecordNumber number = 0;
    bool isWebhook = false;
  };
  void declareOne(const std::string& name, bool isWebhook);
  [[nodiscard]] std::optional<RecordNumber> lowestOf(bool isWebhook) const;
  [[nodiscard]] std::optional<std::string> whyNot(const std::string& consumer,
                                                  const LogIdentity& log, RecordNumber number,
                                                  RecordNumber published) const;

  Log& log_;
  Troubles& troubles_;
  std::map<std::string, Stand> commits_;
};

}  // namespace kestrin::gateway
