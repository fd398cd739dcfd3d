// What a consumer has to do so that nothing is lost and nothing counts twice: tell repeats apart by
// gateway, log and number, notice what is missing and ask for it, and commit.
//
// It knows no broker: messages go in, messages to publish come out.
//
// Threads: one. Handlers must not call the consumer.
// Lifetime: what `restore` takes is what `saved` returned, of the same gateway.
// Errors: a message that cannot be read is passed to `onTrouble`.
#pragma once

#include "tools/gateway/consumer/Stream.h"
#include "tools/gateway/message/Messages.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrin::gateway {

/// What is wrong with the name of a gateway or a consumer, and what would be right; absent: it can
/// be part of a topic.
std::optional<std::string> nameComplaint(std::string_view name);

class Consumer {
 public:
  struct Handlers {
    /// One record, once, in the order of its numbers within its log; gap records too, which have a
    /// number of their own. Return true when it is kept safe: only then it is committed; false: it
    /// is offered again by the next `tick`, and nothing behind it before.
    std::function<bool(const LogIdentity&, const Record&)> onRecord{};
    /// Numbers that this consumer will never be given, each once: those that the gateway reports as
    /// lost without those that came in time.
    std::function<void(const LogIdentity&, const Gap&)> onGap{};
    std::function<void(const std::string&)> onTrouble{};
    /// To be published, QoS 1. What is not, is published again after the next `connected`.
    std::function<void(const Message&)> publish{};
  };
  struct Limits {
    std::size_t waiting = 10000;  ///< Records of one log that came before their turn.
    std::size_t logs = 100;  ///< Logs that are remembered; the one not used longest goes first.
  };
  Consumer(std::string gateway, std::string name, Handlers handlers);
  Consumer(std::string gateway, std::string name, Handlers handlers, Limits limits);

  /// What to subscribe to.
  [[nodiscard]] std::vector<std::string> filters() const;
  /// After each connection: asks for what has not been committed, as soon as the gateway's retained
  /// information has said which log is in use, or with the next `tick`.
  void connected();
  void take(const Message& message);
  /// To be called now and then: commits, and asks again for what is missing since the last call,
  /// less and less often while nothing comes.
  void tick();
  [[nodiscard]] std::uint64_t taken() const { return taken_; }
  [[nodiscard]] std::uint64_t repeats() const { return repeats_; }
  [[nodiscard]] std::uint64_t lost() const { return lost_; }
  /// The next number of each log, to be kept with what was taken.
  [[nodiscard]] std::map<LogIdentity, RecordNumber> saved() const;
  void restore(const std::map<LogIdentity, RecordNumber>& saved);

 private:
  struct Known {
    Stream stream;
    std::uint64_t used = 0;  // Counts up with each use of any log.
  };

  Known& known(const LogIdentity& log);
  void makeRoom();
  void takeDelivery(const Message& message);
  void takeStanding(const Message& message);
  void loseOf(const Gap& gap);
  void handOut(const LogIdentity& log, Stream& stream);
  bool handOutOne(const LogIdentity& log, Stream& stream);
  void use(const LogIdentity& log, bool stated);
  void report(const Gap& lost);
  void commit(bool again);
  void ask();
  void askAgain();
  void trouble(const std::string& text);

  const std::string gateway_, name_;
  const Topics topics_;
  const Handlers handlers_;
  const Limits limits_;
  std::map<LogIdentity, Known> logs_;
  std::optional<LogIdentity> current_;  // The gateway's log.
  bool stated_ = false;                 // The gateway has said so, nobody has guessed.
  std::uint64_t uses_ = 0;
  bool askAtStanding_ = false;
  bool commitAgain_ = false;
  RecordNumber committed_ = 0;  // Of the current log.
  RecordNumber missingAt_ = 0;  // What was missing at the last tick; 0: nothing.
  unsigned ticksToAsk_ = 0;
  unsigned ticksBetween_ = 1;
  std::uint64_t taken_ = 0, repeats_ = 0, lost_ = 0;
};

}  // namespace kestrin::gateway
