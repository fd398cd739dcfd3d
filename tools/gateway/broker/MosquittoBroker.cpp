#include "tools/gateway/broker/MosquittoBroker.h"

#include "tools/gateway/broker/BrokerAccess.h"
#include "tools/gateway/broker/MosquittoLink.h"
#include "tools/gateway/broker/MosquittoMailbox.h"

#include <thread>
#include <utility>
#include <variant>

namespace kestrin::gateway {
namespace {

// For the farewell itself, once the limit for the acknowledgements has passed.
constexpr Time kFarewellGrace = std::chrono::milliseconds(500);
// So many short connections in a row that the broker ends without a word are probably taken over by
// another client with the same id: not every broker says so.
constexpr int kClosedInARow = 3;
constexpr Time kShortConnection = std::chrono::seconds(30);

}  // namespace

/// Tasks on the run loop hold it weakly, so that what is dropped is gone.
class MosquittoBroker::Inside : public std::enable_shared_from_this<Inside> {
 public:
  Inside(std::shared_ptr<RunLoop> loop, BrokerSettings settings)
      : loop_(std::move(loop)),
        settings_(std::move(settings)),
        pause_(settings_.pauses, settings_.random) {}

  void start(std::vector<std::string> filters, std::optional<Message> will,
             BrokerHandlers handlers);
  std::optional<PublishId> publish(Message message);
  void stop(Time limit, std::function<void()> done);
  void reload();
  void drop();

 private:
  using Timer = std::optional<RunLoop::TimerId>;
  /// What it calls finds the timer disarmed.
  void arm(Timer& timer, Time delay, void (Inside::*what)());
  void disarm(Timer& timer);

  void begin();
  void attempt();
  void startThread();
  void giveUpAttempt();
  void endLink();
  void takeEvents(std::uint64_t attempt);
  void handle(const BrokerUp& up);
  void handle(const LinkDown& down);
  void handle(const LinkAcknowledged& acknowledged);
  void handle(const Message& message);
  [[nodiscard]] bool triesOlderProtocol(const LinkDown& down) const;
  void tryAgain(const LinkDown& down);
  [[nodiscard]] std::string textOf(const LinkDown& down) const;
  /// Once for all that is handed over in a turn of the loop: a wake costs more than a message.
  void wakeSoon();
  void sayFarewellIfDone();
  void stopLimitHasPassed();
  void finish();

  const std::shared_ptr<RunLoop> loop_;
  const BrokerSettings settings_;
  ReconnectPause pause_;
  std::vector<std::string> filters_;
  std::optional<Message> will_;
  BrokerHandlers handlers_;
  std::function<void()> done_;

  std::shared_ptr<MosquittoMailbox> mailbox_;  // Of the connection that is there or being made.
  std::thread thread_;
  std::uint64_t attempt_ = 0;  // Counts them, so that what comes late is known.
  int protocol_ = 5;           // Of this attempt.
  std::optional<BrokerUp> up_;
  Time upSince_ = Time::zero();
  int closedInARow_ = 0;
  std::size_t unacknowledged_ = 0;
  PublishId lastId_ = 0;
  Timer pauseTimer_, attemptTimer_, stopTimer_;
  bool started_ = false;
  bool stopping_ = false;
  bool farewell_ = false;
  bool reloading_ = false;
  bool wakes_ = false;  // It is on its way.
  bool over_ = false;   // Dropped, or stopped to the end.
};

void MosquittoBroker::Inside::arm(Timer& timer, Time delay, void (Inside::*what)()) {
  disarm(timer);
  timer = loop_->arm(delay, [weak = weak_from_this(), what, &timer] {
    const auto self = weak.lock();
    if (!self || self->over_) return;
    timer.reset();
    ((*self).*what)();
  });
}

void MosquittoBroker::Inside::disarm(Timer& timer) {
  if (timer) loop_->cancel(*timer);
  timer.reset();
}

void MosquittoBroker::Inside::start(std::vector<std::string> filters, std::optional<Message> will,
                                    BrokerHandlers handlers) {
  if (std::exchange(started_, true)) return;
  filters_ = std::move(filters);
  will_ = std::move(will);
  handlers_ = std::move(handlers);
  arm(pauseTimer_, Time::zero(), &Inside::begin);
}

void MosquittoBroker::Inside::begin() {
  const auto why = whyNotTried(settings_.config, settings_.clientId);
  if (!why) {
    attempt();
  } else if (handlers_.onDown) {
    handlers_.onDown(*why);
  }
}

void MosquittoBroker::Inside::attempt() {
  if (settings_.config.protocol != 0) protocol_ = settings_.config.protocol;
  ++attempt_;
  arm(attemptTimer_, settings_.attemptLimit, &Inside::giveUpAttempt);
  // The run loop is not held: a thread that is left to itself must not be the last to hold it.
  mailbox_ =
      MosquittoMailbox::create([loop = loop_.get(), weak = weak_from_this(), attempt = attempt_] {
        loop->post([weak, attempt] {
          if (const auto self = weak.lock()) self->takeEvents(attempt);
        });
      });
  startThread();
}

void MosquittoBroker::Inside::startThread() {
  std::optional<std::thread> thread;
  if (mailbox_) {
    thread =
        startLink({settings_.config, settings_.clientId, protocol_, filters_, will_}, mailbox_);
  }
  if (thread) {
    thread_ = std::move(*thread);
    return;
  }
  handle(LinkDown{LinkEnd::failed, brokerText(settings_.config) +
                                       ": this system has no descriptor or no thread left"});
}

void MosquittoBroker::Inside::giveUpAttempt() {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(settings_.attemptLimit);
  handle(LinkDown{LinkEnd::failed, brokerText(settings_.config) + ": no answer within " +
                                       std::to_string(seconds.count()) + " s"});
}

void MosquittoBroker::Inside::endLink() {
  disarm(attemptTimer_);
  unacknowledged_ = 0;
  if (!mailbox_) return;
  const bool endsNow = mailbox_->end();
  mailbox_.reset();
  if (!thread_.joinable()) return;
  if (endsNow) {
    thread_.join();
  } else {
    thread_.detach();
  }
}

void MosquittoBroker::Inside::takeEvents(std::uint64_t attempt) {
  const auto isOver = [this, attempt] { return over_ || attempt != attempt_ || !mailbox_; };
  if (isOver()) return;
  for (const LinkEvent& event : mailbox_->take()) {
    std::visit([this](const auto& happened) { handle(happened); }, event);
    if (isOver()) return;
  }
  if (stopping_) sayFarewellIfDone();
}

void MosquittoBroker::Inside::handle(const BrokerUp& up) {
  disarm(attemptTimer_);
  up_ = up;
  upSince_ = loop_->now();
  if (!stopping_ && handlers_.onUp) handlers_.onUp(up);
}

void MosquittoBroker::Inside::handle(const LinkAcknowledged& acknowledged) {
  if (unacknowledged_ > 0) --unacknowledged_;
  if (handlers_.onAcknowledged) handlers_.onAcknowledged(acknowledged.id, acknowledged.refused);
}

void MosquittoBroker::Inside::handle(const Message& message) {
  if (handlers_.onMessage) handlers_.onMessage(message);
}

void MosquittoBroker::Inside::handle(const LinkDown& down) {
  endLink();
  if (stopping_) {
    finish();
    return;
  }
  if (triesOlderProtocol(down)) {
    protocol_ = 4;
    attempt();
    return;
  }
  protocol_ = 5;
  const bool forFiles = reloading_;
  tryAgain(down);
  if (!handlers_.onDown) return;
  handlers_.onDown(forFiles ? brokerText(settings_.config) +
                                  ": connecting again, to read certificates and keys again"
                            : textOf(down));
}

bool MosquittoBroker::Inside::triesOlderProtocol(const LinkDown& down) const {
  return down.end == LinkEnd::protocolRefused && settings_.config.protocol == 0 && protocol_ == 5;
}

std::string MosquittoBroker::Inside::textOf(const LinkDown& down) const {
  if (closedInARow_ < kClosedInARow) return down.why;
  return down.why +
         ", soon after it was made and not for the first time; is there another client with the "
         "id " +
         settings_.clientId + "? Give each gateway a name of its own";
}

void MosquittoBroker::Inside::tryAgain(const LinkDown& down) {
  const Time held = up_ ? loop_->now() - upSince_ : Time::zero();
  up_.reset();
  const bool isShort = down.end == LinkEnd::closed && held < kShortConnection;
  closedInARow_ = isShort ? closedInARow_ + 1 : 0;
  const bool atOnce = std::exchange(reloading_, false);
  const Time pause = pause_.after({held, down.end == LinkEnd::takenOver});
  arm(pauseTimer_, atOnce ? Time::zero() : pause, &Inside::attempt);
}

std::optional<PublishId> MosquittoBroker::Inside::publish(Message message) {
  if (!up_ || stopping_ || reloading_ || over_) return std::nullopt;
  if (unacknowledged_ >= up_->window) return std::nullopt;
  ++unacknowledged_;
  mailbox_->hand({++lastId_, std::move(message)});
  wakeSoon();
  return lastId_;
}

void MosquittoBroker::Inside::wakeSoon() {
  if (std::exchange(wakes_, true)) return;
  loop_->post([weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    self->wakes_ = false;
    if (self->mailbox_) self->mailbox_->wake();
  });
}

void MosquittoBroker::Inside::reload() {
  if (!started_ || stopping_ || over_) return;
  if (up_) {
    reloading_ = true;
    mailbox_->sayFarewell();
    arm(attemptTimer_, kFarewellGrace, &Inside::giveUpAttempt);
  } else if (mailbox_ || pauseTimer_) {
    endLink();
    arm(pauseTimer_, Time::zero(), &Inside::begin);
  }
}

void MosquittoBroker::Inside::stop(Time limit, std::function<void()> done) {
  if (std::exchange(stopping_, true)) return;
  done_ = std::move(done);
  disarm(pauseTimer_);
  if (!up_) {
    arm(stopTimer_, Time::zero(), &Inside::finish);
    return;
  }
  arm(stopTimer_, limit, &Inside::stopLimitHasPassed);
  sayFarewellIfDone();
}

void MosquittoBroker::Inside::sayFarewellIfDone() {
  if (unacknowledged_ > 0 || !mailbox_ || std::exchange(farewell_, true)) return;
  mailbox_->sayFarewell();
}

void MosquittoBroker::Inside::stopLimitHasPassed() {
  unacknowledged_ = 0;
  sayFarewellIfDone();
  arm(stopTimer_, kFarewellGrace, &Inside::finish);
}

void MosquittoBroker::Inside::finish() {
  drop();
  if (done_) std::exchange(done_, nullptr)();
}

void MosquittoBroker::Inside::drop() {
  over_ = true;
  up_.reset();
  endLink();
  disarm(pauseTimer_);
  disarm(stopTimer_);
}

MosquittoBroker::MosquittoBroker(std::shared_ptr<RunLoop> loop, BrokerSettings settings)
    : inside_(std::make_shared<Inside>(std::move(loop), std::move(settings))) {}

MosquittoBroker::~MosquittoBroker() { inside_->drop(); }

void MosquittoBroker::start(std::vector<std::string> filters, std::optional<Message> will,
                            BrokerHandlers handlers) {
  inside_->start(std::move(filters), std::move(will), std::move(handlers));
}

std::optional<PublishId> MosquittoBroker::publish(Message message) {
  return inside_->publish(std::move(message));
}

void MosquittoBroker::stop(double limitSeconds, std::function<void()> done) {
  inside_->stop(timeFromSeconds(limitSeconds), std::move(done));
}

void MosquittoBroker::reloadCertificates() { inside_->reload(); }

}  // namespace kestrin::gateway
