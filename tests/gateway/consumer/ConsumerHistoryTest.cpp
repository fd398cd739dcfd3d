// A consumer over a broker that loses, repeats and reorders, with handlers that refuse and restarts
// in between: whatever happens, each record is handed out once and in order.
#include "tools/gateway/consumer/Consumer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <optional>
#include <random>
#include <vector>

namespace kestrin::gateway {
namespace {

const LogIdentity kHistoryLog(32, 'c');

/// One seeded history. The gateway is modelled by what it promises: it publishes from where it is
/// asked to, in order.
class History {
 public:
  explicit History(std::uint32_t seed) : random_(seed) { restart(); }

  void run() {
    constexpr int kSteps = 400;
    for (int step = 0; step < kSteps && !testing::Test::HasFailure(); ++step) move();
    honest_ = true;
    for (int i = 0; i < 200 && handedOut_.size() < records_; ++i) {
      publishSome();
      consumer_->tick();
    }
    std::vector<RecordNumber> all(static_cast<std::size_t>(records_));
    for (std::size_t i = 0; i < all.size(); ++i) all[i] = i + 1;
    EXPECT_EQ(handedOut_, all);
    consumer_->tick();
    EXPECT_EQ(committed_, records_);
  }

 private:
  unsigned below(unsigned bound) {
    return std::uniform_int_distribution<unsigned>(0, bound - 1)(random_);
  }

  void restart() {
    Consumer::Handlers handlers;
    handlers.onRecord = [this](const LogIdentity&, const Record& record) {
      if (!honest_ && below(20) == 0) return false;
      handedOut_.push_back(record.number);
      return true;
    };
    handlers.onGap = [](const LogIdentity&, const Gap&) { ADD_FAILURE() << "nothing is lost"; };
    handlers.onTrouble = [](const std::string& text) { ADD_FAILURE() << text; };
    handlers.publish = [this](const Message& message) { hear(message); };
    Consumer::Limits limits;
    limits.waiting = 1 + below(30);
    const auto saved = consumer_ ? consumer_->saved() : std::map<LogIdentity, RecordNumber>();
    consumer_ = std::make_unique<Consumer>("hall-1", "wms", handlers, limits);
    consumer_->restore(saved);
  }

  void hear(const Message& message) {
    std::string error;
    if (message.topic == topics_.replay()) {
      if (!honest_ && below(3) == 0) return;
      next_ = replayOf(message.payload, error)->from;
    } else {
      const RecordNumber number = commitOf(message.payload, error)->number;
      EXPECT_GE(number, committed_);
      EXPECT_LE(number, handedOut_.size()) << "committed before it was safe";
      committed_ = number;
    }
  }

  void move() {
    switch (below(8)) {
      case 0:
        records_ += below(10);
        break;
      case 1:
        consumer_->tick();
        break;
      case 2:
        if (below(10) == 0) restart();
        consumer_->connected();
        sayInfo();
        break;
      case 3:
        next_ = std::min<RecordNumber>(next_, committed_ + 1);
        break;
      default:
        publishSome();
    }
  }

  void sayInfo() {
    GatewayInfo info;
    info.log = kHistoryLog;
    info.first = 1;
    info.next = records_ + 1;
    give(topics_.info(), textOf(info));
  }

  void publishSome() {
    std::vector<RecordNumber> batch;
    for (unsigned i = below(12); i > 0 && next_ <= records_; --i) batch.push_back(next_++);
    if (!honest_) {
      if (below(4) == 0) std::shuffle(batch.begin(), batch.end(), random_);
      if (below(4) == 0 && !batch.empty()) batch.push_back(batch.front());
      if (below(4) == 0 && !batch.empty()) batch.pop_back();
    } else if (next_ > records_) {
      Health health;
      health.log = kHistoryLog;
      health.first = 1;
      health.last = health.synced = health.published = records_;
      give(topics_.health(), textOf(health));
    }
    for (const RecordNumber number : batch) {
      Record record;
      record.number = number;
      record.reader = "C0:00:00:00:00:01";
      record.bytes = {0xBB, 0x01, 0xA2, 0x00, 0x00, 0x7E, 0x23, 0x1A};
      give(topics_.readerFrame(record.reader), payloadOf(record, kHistoryLog, FrameFormat::json));
    }
  }

  void give(const std::string& topic, const std::string& payload) {
    Message message;
    message.topic = topic;
    message.payload = payload;
    consumer_->take(message);
  }

  std::mt19937 random_;
  const Topics topics_{"hall-1"};
  std::unique_ptr<Consumer> consumer_;
  bool honest_ = false;
  RecordNumber records_ = 0;
  RecordNumber next_ = 1;
  RecordNumber committed_ = 0;
  std::vector<RecordNumber> handedOut_;
};

std::optional<std::uint32_t> numberIn(const char* variable) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the environment is never changed here.
  const char* const given = std::getenv(variable);
  if (given == nullptr) return std::nullopt;
  return static_cast<std::uint32_t>(std::strtoul(given, nullptr, 10));
}

/// The seed in KESTRIN_SEED alone, or as many as KESTRIN_CONSUMER_HISTORIES says.
std::vector<std::uint32_t> seeds() {
  if (const auto given = numberIn("KESTRIN_SEED")) return {*given};
  constexpr std::uint32_t kHistories = 40;
  std::vector<std::uint32_t> seeds(numberIn("KESTRIN_CONSUMER_HISTORIES").value_or(kHistories));
  std::iota(seeds.begin(), seeds.end(), std::random_device()());
  return seeds;
}

TEST(ConsumerHistory, WhateverTheBrokerDoesEachRecordIsHandedOutOnceAndInOrder) {
  for (const std::uint32_t seed : seeds()) {
    SCOPED_TRACE("KESTRIN_SEED=" + std::to_string(seed));
    History(seed).run();
    if (HasFailure()) return;
  }
}

}  // namespace
}  // namespace kestrin::gateway
