#include "tools/gateway/commands/ConsumeSession.h"

#include <chrono>
#include <utility>

#include "tools/gateway/commands/SafeText.h"

namespace kestrin::gateway {
namespace {

constexpr Time kTick = std::chrono::seconds(1);
constexpr double kFarewellSeconds = 5;

std::string lossText(const Gap& gap) {
  return "lost: numbers " + std::to_string(gap.from) + " to " + std::to_string(gap.to) +
         " of the log " + gap.log + " (" + std::string(wordOf(gap.reason)) + ")";
}

}  // namespace

ConsumeSession::ConsumeSession(std::weak_ptr<RunLoop> loop, Broker& broker, ConsumerState& state,
                               Output& output, const Names& names, std::function<void()> onFailed)
    : loop_(std::move(loop)),
      broker_(broker),
      state_(state),
      output_(output),
      onFailed_(std::move(onFailed)),
      consumer_(names.gateway, names.consumer, handlers()) {
  consumer_.restore(state_.positions());
}

ConsumeSession::~ConsumeSession() {
  if (const auto loop = loop_.lock(); loop && timer_) loop->cancel(*timer_);
}

Consumer::Handlers ConsumeSession::handlers() {
  Consumer::Handlers handlers;
  handlers.onRecord = [this](const LogIdentity& log, const Record& record) {
    if (failed_) return false;
    output_.line(safeJson(payloadOf(record, log, FrameFormat::json)));
    return true;
  };
  handlers.onGap = [this](const LogIdentity&, const Gap& gap) { output_.note(lossText(gap)); };
  handlers.onTrouble = [this](const std::string& text) { output_.note(text); };
  handlers.publish = [this](const Message& message) { publish(message); };
  return handlers;
}

void ConsumeSession::start() {
  BrokerHandlers handlers;
  handlers.onUp = [this](const BrokerUp&) { up(); };
  handlers.onDown = [this](const std::string& why) { output_.note(why); };
  handlers.onMessage = [this](const Message& message) {
    // What comes behind the last state would be printed again next time.
    if (stopping_) return;
    consumer_.take(message);
    flushSoon();
  };
  broker_.start(consumer_.filters(), std::nullopt, std::move(handlers));
  tickLater();
}

void ConsumeSession::stop(std::function<void()> done) {
  tick();
  stopping_ = true;
  broker_.stop(kFarewellSeconds, std::move(done));
}

std::string ConsumeSession::summary() const {
  return "taken " + std::to_string(consumer_.taken()) + ", repeats " +
         std::to_string(consumer_.repeats()) + ", lost " + std::to_string(consumer_.lost());
}

void ConsumeSession::up() {
  output_.note("the broker is there");
  waitingCommit_.reset();
  if (!stopping_ && settle()) consumer_.connected();
}

void ConsumeSession::publish(const Message& message) {
  const bool handedOver = broker_.publish(message).has_value();
  // What is asked for and not handed over is asked for again; only the last commit counts.
  if (!message.retain) return;
  waitingCommit_ = handedOver ? std::nullopt : std::optional(message);
}

void ConsumeSession::tickLater() {
  if (const auto loop = loop_.lock()) {
    timer_ = loop->arm(kTick, [this] {
      timer_.reset();
      tickLater();
      tick();
    });
  }
}

void ConsumeSession::tick() {
  if (stopping_ || !settle()) return;
  if (waitingCommit_) publish(Message(*waitingCommit_));
  consumer_.tick();
}

void ConsumeSession::flushSoon() {
  const auto loop = loop_.lock();
  if (!loop || std::exchange(flushing_, true)) return;
  // Behind what has come already, so that many lines are one write.
  loop->post([this, alive = std::weak_ptr<int>(alive_)] {
    if (alive.expired()) return;
    flushing_ = false;
    output_.flush();
    if (output_.error()) fail("standard output: " + output_.error()->message());
  });
}

bool ConsumeSession::settle() {
  if (failed_) return false;
  output_.sync();
  if (output_.error()) {
    fail("standard output: " + output_.error()->message());
  } else if (const auto why = state_.save(consumer_.saved())) {
    fail(*why);
  }
  return !failed_;
}

void ConsumeSession::fail(const std::string& why) {
  if (std::exchange(failed_, true)) return;
  output_.note(why + "; nothing more is committed");
  if (onFailed_) onFailed_();
}

}  // namespace kestrin::gateway
