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
  Commits(Log& log, Troubles& troubles, const std::vector<std::string>& consumers);

  /// From now on these are the declared ones. What others have committed is dropped.
  void declare(const std::vector<std::string>& consumers);
  /// Takes the message of a commit's topic. `published` is the highest number that any consumer can
  /// have. True when a declared consumer's commit has moved.
  bool take(const std::string& consumer, std::string_view payload, RecordNumber published);

  /// Absent without a declared consumer.
  [[nodiscard]] std::optional<RecordNumber> lowest() const;
  /// The declared ones; who has committed nothing yet is where the log was forgotten up to.
  [[nodiscard]] std::vector<std::pair<std::string, RecordNumber>> all() const;

 private:
  [[nodiscard]] std::optional<std::string> whyNot(const std::string& consumer,
                                                  const LogIdentity& log, RecordNumber number,
                                                  RecordNumber published) const;

  Log& log_;
  Troubles& troubles_;
  std::map<std::string, RecordNumber> commits_;
};

}  // namespace kestrin::gateway
