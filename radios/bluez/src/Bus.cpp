#include "Bus.h"

#include <utility>

#include "BusSocket.h"

namespace kestrin::bluez {
namespace {

constexpr char kDisconnected[] = "org.freedesktop.DBus.Error.Disconnected";
constexpr char kNoReply[] = "org.freedesktop.DBus.Error.NoReply";
constexpr int kMessagesPerRound = 64;

}  // namespace

Bus::Bus(BusThread& thread, std::function<void()> lost) : thread_(thread), lost_(std::move(lost)) {}

Bus::~Bus() { close(); }

std::optional<CallError> Bus::open(const std::optional<std::string>& address) {
  if (auto error = whyNoBusListens(address)) return error;
  try {
    connection_ = address ? sdbus::createSessionBusConnectionWithAddress(*address)
                          : sdbus::createSystemBusConnection();
    return std::nullopt;
  } catch (const sdbus::Error& error) {
    return CallError{error.getName(), error.getMessage()};
  }
}

void Bus::close() {
  *alive_ = false;
  alive_ = std::make_shared<bool>(true);
  for (auto& [number, pending] : pending_) thread_.cancel(pending.limit);
  pending_.clear();
  answered_.clear();
  connection_.reset();
  broken_ = false;
}

bool Bus::subscribe(const std::string& match, SignalHandler handler) {
  if (!connection_) return false;
  try {
    addMatch(*connection_, match, std::move(handler));
    return true;
  } catch (const sdbus::Error&) {
    return false;
  }
}

void Bus::call(const Call& call, Reply reply) {
  const auto number = nextNumber_++;
  Pending& pending = pending_[number];
  pending.reply = std::move(reply);
  if (!connection_ || broken_) {
    answerLater(number, {kDisconnected, "there is no connection to the message bus"});
    return;
  }
  try {
    pending.proxy = makeProxy(*connection_, call.destination, call.path);
    auto message = makeCall(*pending.proxy, call.interface, call.method);
    if (call.arguments) call.arguments(message);
    // Limits are timers of the radio's own thread; the bus library is told to wait without end.
    callWithoutLimit(*pending.proxy, message,
                     [this, number](const sdbus::Error* error, sdbus::MethodReply& answer) {
                       this->answer(number,
                                    error != nullptr ? std::optional(CallError{error->getName(),
                                                                               error->getMessage()})
                                                     : std::nullopt,
                                    answer);
                     });
    pending.limit = thread_.arm(call.limit, [this, number] {
      sdbus::MethodReply none;
      answer(number, CallError{kNoReply, "no answer came in time"}, none);
      answered_.clear();
    });
  } catch (const sdbus::Error& error) {
    answerLater(number, {error.getName(), error.getMessage()});
  }
}

void Bus::answer(std::uint64_t number, const std::optional<CallError>& error,
                 sdbus::MethodReply& reply) {
  const auto found = pending_.find(number);
  if (found == pending_.end()) return;
  Pending pending = std::move(found->second);
  pending_.erase(found);
  thread_.cancel(pending.limit);
  if (pending.proxy) answered_.push_back(std::move(pending.proxy));
  if (pending.reply) pending.reply(error, reply);
}

void Bus::answerLater(std::uint64_t number, CallError error) {
  thread_.post([this, number, error = std::move(error), alive = std::weak_ptr(alive_)] {
    const auto stillOpen = alive.lock();
    if (!stillOpen || !*stillOpen) return;
    sdbus::MethodReply none;
    answer(number, error, none);
    answered_.clear();
  });
}

std::optional<PollSource::Wait> Bus::wait() noexcept {
  if (!connection_) return std::nullopt;
  try {
    const auto poll = connection_->getEventLoopPollData();
    return Wait{.descriptor = poll.fd, .events = poll.events, .limit = timeToNextEvent(poll)};
  } catch (const sdbus::Error&) {
    broken_ = true;
    return Wait{.descriptor = -1, .events = 0, .limit = Time::zero()};
  }
}

void Bus::process() noexcept {
  if (!connection_) return;
  try {
    // What is left after that many is taken in the next round; tasks must not starve.
    for (int count = 0; !broken_ && count < kMessagesPerRound; ++count) {
      if (!processOne(*connection_)) break;
    }
  } catch (const sdbus::Error&) {
    broken_ = true;
  }
  answered_.clear();
  if (broken_) loseConnection();
}

void Bus::loseConnection() {
  for (auto& [number, pending] : pending_) thread_.cancel(pending.limit);
  auto unanswered = std::exchange(pending_, {});
  close();
  sdbus::MethodReply none;
  for (auto& [number, pending] : unanswered) {
    if (pending.reply) {
      pending.reply(CallError{kDisconnected, "the connection to the message bus was lost"}, none);
    }
  }
  lost_();
}

}  // namespace kestrin::bluez
