// A consumer at work: what comes from the broker is printed, then kept, then committed, in this
// order, so that nothing is committed that could still be lost.
//
// Threads: the run loop's.
// Lifetime: broker, state and output outlive it.
// Errors: where printing or keeping fails, `onFailed` is called once, and nothing is committed any
// more.
#pragma once

#include <KestrinBLESDK/platform/RunLoop.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "tools/gateway/broker/Broker.h"
#include "tools/gateway/commands/ConsumerState.h"
#include "tools/gateway/commands/Output.h"
#include "tools/gateway/consumer/Consumer.h"

namespace kestrin::gateway {

class ConsumeSession {
 public:
  struct Names {
    std::string gateway;
    std::string consumer;
  };
  ConsumeSession(std::weak_ptr<RunLoop> loop, Broker& broker, ConsumerState& state, Output& output,
                 const Names& names, std::function<void()> onFailed);
  ~ConsumeSession();
  ConsumeSession(const ConsumeSession&) = delete;
  ConsumeSession& operator=(const ConsumeSession&) = delete;

  void start();
  /// Prints and keeps what has come, commits it, and leaves the broker; then calls `done`.
  void stop(std::function<void()> done);
  [[nodiscard]] bool failed() const noexcept { return failed_; }
  /// How it went, for a person.
  [[nodiscard]] std::string summary() const;

 private:
  Consumer::Handlers handlers();
  void up();
  void publish(const Message& message);
  void tickLater();
  void tick();
  void flushSoon();
  bool settle();
  void fail(const std::string& why);

  const std::weak_ptr<RunLoop> loop_;
  Broker& broker_;
  ConsumerState& state_;
  Output& output_;
  const std::function<void()> onFailed_;
  Consumer consumer_;
  std::optional<Message> waitingCommit_;  // The broker had no room for it.
  std::optional<RunLoop::TimerId> timer_;
  bool flushing_ = false;
  bool stopping_ = false;
  bool failed_ = false;
  const std::shared_ptr<int> alive_ = std::make_shared<int>(0);
};

}  // namespace kestrin::gateway
