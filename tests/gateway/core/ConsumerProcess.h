// A consumer's process in virtual time: what it keeps safe outlives it, what it knows besides dies
// with it.
//
// Threads: one. Lifetime: the broker outlives it. Errors: what the consumer complains of is kept.
#pragma once

#include "gateway/support/ModelBroker.h"
#include "tools/gateway/consumer/Consumer.h"
#include "tools/gateway/core/Timer.h"

#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace kestrin::gateway::test {

class ConsumerProcess {
 public:
  using Key = std::pair<LogIdentity, RecordNumber>;

  struct How {
    std::string gateway;
    std::string name;
    bool keepsSession = true;
    bool comparesContent = false;  ///< Wrongly: what looks the same is taken for a repeat.
  };
  ConsumerProcess(std::weak_ptr<RunLoop> loop, ModelBroker& broker, How how)
      : broker_(broker), how_(std::move(how)), tick_(std::move(loop)) {}

  void start() {
    consumer_ = std::make_unique<Consumer>(how_.gateway, how_.name, handlers());
    consumer_->restore(state_);
    client_ = broker_.client(how_.name, how_.keepsSession);
    client_->start(consumer_->filters(), std::nullopt,
                   {.onUp = [this](const BrokerUp&) { consumer_->connected(); },
                    .onMessage = [this](const Message& message) { take(message); }});
    tickSoon();
  }
  /// What it has kept safe stays, of what it knew only what was `rememberState`d if so asked.
  void kill(bool withLastState) {
    if (!consumer_) return;
    if (withLastState) rememberState();
    repeats += consumer_->repeats();
    tick_.cancel();
    client_.reset();
    consumer_.reset();
  }
  void rememberState() {
    if (consumer_) state_ = consumer_->saved();
  }
  [[nodiscard]] bool runs() const { return consumer_ != nullptr; }
  [[nodiscard]] const std::string& name() const { return how_.name; }
  /// Whether it is done with everything below `next`.
  [[nodiscard]] bool hasAll(const LogIdentity& log, RecordNumber next) const {
    if (!consumer_) return false;
    const auto saved = consumer_->saved();
    const auto found = saved.find(log);
    return next == 1 || (found != saved.end() && found->second >= next);
  }
  [[nodiscard]] std::string stand() const {
    std::string text = how_.name;
    if (!consumer_) return text + " does not run";
    for (const auto& [log, next] : consumer_->saved()) {
      text += " " + log.substr(0, 4) + ":" + std::to_string(next);
    }
    return text;
  }
  /// Does not take what it is offered.
  void setBusy(bool busy) { busy_ = busy; }

  /// What it has kept safe, each under its number, in the order in which it came first.
  std::map<Key, Record> kept;
  std::vector<Key> order;
  std::vector<Gap> gaps;  ///< As the gateway's gap records say, whatever else the consumer infers.
  std::vector<std::string> wrong;
  std::uint64_t repeats = 0;  ///< That were told apart in the runs that have ended.

 private:
  Consumer::Handlers handlers() {
    return {
        .onRecord = [this](const LogIdentity& log,
                           const Record& record) { return keep(log, record); },
        // A loss counts as reported where the gateway's own record names it, and not where the
        // consumer had to conclude it.
        .onGap = [](const LogIdentity&, const Gap&) {},
        .onTrouble =
            [this](const std::string& text) { wrong.push_back(how_.name + " complains: " + text); },
        .publish = [this](const Message& message) { client_->publish(message); }};
  }
  bool keep(const LogIdentity& log, const Record& record) {
    if (busy_) return false;
    if (record.gap) {
      gaps.push_back(*record.gap);
      return true;
    }
    if (how_.comparesContent && !contents_.insert({record.reader, record.bytes}).second) {
      return true;
    }
    const auto [place, isNew] = kept.emplace(Key(log, record.number), record);
    if (isNew) order.emplace_back(log, record.number);
    if (!isNew && (place->second.bytes != record.bytes || place->second.reader != record.reader)) {
      wrong.push_back(how_.name + " got another content under number " +
                      std::to_string(record.number));
    }
    return true;
  }
  void take(const Message& message) { consumer_->take(message); }
  void tickSoon() {
    tick_.arm(std::chrono::seconds(1), [this] {
      tickSoon();
      consumer_->tick();
    });
  }

  ModelBroker& broker_;
  const How how_;
  Timer tick_;
  bool busy_ = false;
  std::map<LogIdentity, RecordNumber> state_;
  std::set<std::pair<std::string, std::vector<std::uint8_t>>> contents_;
  std::unique_ptr<Consumer> consumer_;
  std::unique_ptr<Broker> client_;
};

}  // namespace kestrin::gateway::test
