// Commands for readers, as they come from the broker: each is queued at its reader, handed to the
// radio once, and answered.
//
// A command waits while its reader is not plugged in, as long as its expiry says, or half a minute
// where it says nothing.
//
// Threads: the main run loop's.
// Lifetime: belongs to a gateway. What waits when it is dropped is answered by nobody.
// Errors: answered to whoever asked, and said where nobody can be answered.
#pragma once

#include "tools/gateway/core/CommandMemory.h"
#include "tools/gateway/core/Timer.h"
#include "tools/gateway/message/Messages.h"

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kestrin::gateway {

class Commands {
 public:
  /// Absent: handed to the radio; else why not.
  using Sent = std::function<void(const std::optional<std::string>& why)>;
  struct Handlers {
    std::function<Time()> now;
    /// The reader of a topic, by the name that the handlers below know it by; absent: there is
    /// none.
    std::function<std::optional<std::string>(const std::string& part)> find;
    std::function<bool(const std::string& reader)> isPluggedIn;
    /// Calls `sent` in a later turn, unless the reader is removed before.
    std::function<void(const std::string& reader, const std::vector<std::uint8_t>&, Sent sent)>
        send;
    std::function<void(Message)> answer;
    /// A line for a person, about a command that cannot be answered.
    std::function<void(const std::string&)> complain;
  };
  Commands(std::weak_ptr<RunLoop> loop, Handlers handlers);

  /// A message of the command's topic of `part`, which is a reader.
  void take(const std::string& part, const Message& message);
  /// The reader may be plugged in now.
  void readerChanged(const std::string& reader);
  /// The reader is gone, and with it what waits for it.
  void readerRemoved(const std::string& reader);
  /// Answers everything that waits, since the gateway stops.
  void stop();

 private:
  struct Waiting {
    std::vector<std::uint8_t> bytes;
    std::string responseTopic;
    std::optional<std::string> correlation;
    Time until{};
    bool handedOver = false;
  };
  using Queue = std::deque<Waiting>;

  [[nodiscard]] std::optional<std::string> whyNot(const Message& message) const;
  bool isRepeat(const std::string& reader, const Command& command, const Message& message);
  void enqueue(const std::string& reader, Command command, const Message& message);
  void sendNext(const std::string& reader);
  void sent(const std::string& reader, const std::optional<std::string>& why);
  void answer(const Waiting& to, bool handed, const std::string& why);
  void refuse(const Message& message, const std::string& why);
  void reply(const std::string& topic, const std::optional<std::string>& correlation,
             const std::string& text);
  void expire();
  void expireIn(const std::string& reader, Queue& queue);
  void armExpiry();
  void endAll(const std::string& reader, const std::string& why);

  const Handlers handlers_;
  CommandMemory memory_;
  std::map<std::string, Queue> queues_;
  Timer expiry_;
  const std::shared_ptr<int> alive_ = std::make_shared<int>(0);
};

}  // namespace kestrin::gateway
