// What a consumer has to do so that nothing is lost and nothing counts twice: tell repeats apart by
// gateway, log and number, notice what is missing and ask for it, and commit.
//
// It knows no broker: messages go in, messages to publish come out.
//
// Threads: one.
// Lifetime: what `restore` takes is what `saved` returned, of the same gateway.
// Errors: a message that cannot be read is passed to `onTrouble`.
#pragma once

#include "tools/gateway/message/Messages.h"

#include <functional>
#include <map>
#include <string>

namespace kestrin::gateway {

class Consumer {
 public:
  struct Handlers {
    /// One record, once, in the order of its numbers within its log. Return true when it is kept
    /// safe: only then it is committed; false: it is asked for again.
    std::function<bool(const LogIdentity&, const Record&)> onRecord{};
    /// Numbers that the gateway reports as lost.
    std::function<void(const LogIdentity&, const Gap&)> onGap{};
    std::function<void(const std::string&)> onTrouble{};
    /// To be published, QoS 1.
    std::function<void(const Message&)> publish{};
  };
  Consumer(std::string gateway, std::string name, Handlers handlers);

  /// What to subscribe to.
  [[nodiscard]] std::vector<std::string> filters() const;
  /// After each connection: asks for what has not been committed.
  void connected();
  void take(const Message& message);
  /// To be called now and then: commits, and asks again for what is missing since the last call.
  void tick();
  [[nodiscard]] std::uint64_t taken() const;
  [[nodiscard]] std::uint64_t repeats() const;
  [[nodiscard]] std::uint64_t lost() const;
  /// The next number of each log, to be kept with what was taken.
  [[nodiscard]] std::map<LogIdentity, RecordNumber> saved() const;
  void restore(std::map<LogIdentity, RecordNumber> saved);

 private:
  struct Stream;
  std::string gateway_, name_;
  Handlers handlers_;
};

}  // namespace kestrin::gateway
