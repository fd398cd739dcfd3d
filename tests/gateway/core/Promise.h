// The gateway's promise, as a list of what was taken against what the consumers have.
//
// Threads: one. Lifetime: a plain value. Errors: each breach of the promise is a line.
#pragma once

#include "gateway/core/ConsumerProcess.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kestrin::gateway::test {

class Promise {
 public:
  using Key = ConsumerProcess::Key;

  /// A reader's callback has returned.
  void taken(const LogIdentity& log, const Record& record, std::optional<RecordNumber> number,
             Time at);
  /// The power is cut: what is not on the disk may be lost, if the gateway has had it for no longer
  /// than `cost` in the run that began at `begin`.
  void powerCut(const LogIdentity& log, RecordNumber synced, Time begin, Time now, Time cost);
  /// The gateway is killed: what the disk refused and was not reported yet is known to nobody.
  void killed();
  [[nodiscard]] std::size_t frames() const { return taken_.size(); }
  /// How many frames a power cut may have cost, and how many the disk has refused.
  [[nodiscard]] std::size_t mayBeLost() const;
  [[nodiscard]] std::size_t refused() const;

  /// Every breach, once everything has come to rest.
  [[nodiscard]] std::vector<std::string> breaches(const ConsumerProcess& consumer) const;

 private:
  struct Taken {
    Record record;
    Time at{};
    bool mayBeLost = false;
  };
  /// Frames in a row that the disk refused.
  struct Refused {
    std::uint64_t count = 0;
    std::optional<Time> over{};  // When it took one again.
    bool mayBeUnknown = false;
  };
  void checkDelivered(const ConsumerProcess& consumer, std::vector<std::string>& out) const;
  void checkInvented(const ConsumerProcess& consumer, std::vector<std::string>& out) const;
  void checkOrder(const ConsumerProcess& consumer, std::vector<std::string>& out) const;
  void checkRefused(const ConsumerProcess& consumer, std::vector<std::string>& out) const;

  std::multimap<Key, Taken> taken_;
  std::vector<Refused> refused_;
  std::vector<std::string> early_;
};

}  // namespace kestrin::gateway::test
