// A connection to a real broker: what goes through it, and what becomes of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "gateway/broker/BrokerPeer.h"
#include "gateway/support/MosquittoProcess.h"

namespace kestrin::gateway {
namespace {

using testing::HasSubstr;

class MosquittoBrokerTest : public testing::Test {
 protected:
  void startBroker(const std::string& lines = "allow_anonymous true\n") {
    mosquitto.configure(lines);
    const auto failure = mosquitto.start();
    ASSERT_FALSE(failure) << *failure;
  }
  /// Publishes "1" to `count`, as fast as the window lets it. The most that waited at a time.
  static std::size_t publishAll(BrokerPeer& peer, std::size_t count) {
    std::size_t handed = 0;
    std::size_t most = 0;
    peer.onAcknowledged = [&] {
      while (handed < count && peer.broker->publish({"numbers", std::to_string(handed + 1)})) {
        ++handed;
        most = std::max(most, handed - peer.acknowledged.size());
      }
    };
    peer.onAcknowledged();
    EXPECT_TRUE(waitUntil(peer.loop, [&] { return peer.acknowledged.size() == count; }))
        << peer.acknowledged.size() << " acknowledged, " << peer.lastDown();
    peer.onAcknowledged = nullptr;
    return most;
  }

  Loop loop = std::make_shared<MainRunLoop>();
  MosquittoProcess mosquitto;
};

TEST_F(MosquittoBrokerTest, TakesTheSmallestWindowOfItsOwnAndTheBrokers) {
  startBroker("allow_anonymous true\nmax_inflight_messages 20\n");
  BrokerPeer peer(loop, settingsFor(mosquitto.port()));
  peer.start();
  ASSERT_TRUE(peer.comesUp());
  EXPECT_EQ(peer.ups.front().protocol, 5);
  EXPECT_EQ(peer.ups.front().window, 20U);
  BrokerSettings settings = settingsFor(mosquitto.port(), "another");
  settings.config.window = 7;
  BrokerPeer another(loop, settings);
  another.start();
  ASSERT_TRUE(another.comesUp());
  EXPECT_EQ(another.ups.front().window, 7U);
}

TEST_F(MosquittoBrokerTest, NeverHasMoreThanAHundredWaiting) {
  startBroker("allow_anonymous true\nmax_inflight_messages 1000\n");
  BrokerSettings settings = settingsFor(mosquitto.port());
  settings.config.window = 1000;
  BrokerPeer peer(loop, settings);
  peer.start();
  ASSERT_TRUE(peer.comesUp());
  EXPECT_EQ(peer.ups.front().window, 100U);
  mosquitto.freeze();
  for (int i = 0; i < 100; ++i) EXPECT_TRUE(peer.broker->publish({"a", "b"})) << i;
  EXPECT_FALSE(peer.broker->publish({"a", "b"}));
  mosquitto.thaw();
  EXPECT_TRUE(waitUntil(loop, [&] { return peer.acknowledged.size() == 100; }));
  EXPECT_TRUE(peer.broker->publish({"a", "b"}));
}

TEST_F(MosquittoBrokerTest, TenThousandMessagesArriveOnceAndInOrderWithinTheWindow) {
  startBroker("allow_anonymous true\nmax_inflight_messages 20\nmax_queued_messages 0\n");
  BrokerPeer subscriber(loop, settingsFor(mosquitto.port(), "subscriber"));
  subscriber.start({"numbers"});
  ASSERT_TRUE(subscriber.comesUp());
  BrokerPeer peer(loop, settingsFor(mosquitto.port()));
  peer.start();
  ASSERT_TRUE(peer.comesUp());
  EXPECT_EQ(publishAll(peer, 10'000), 20U);
  ASSERT_TRUE(subscriber.receives(10'000));
  for (std::size_t i = 0; i < 10'000; ++i) {
    ASSERT_EQ(subscriber.messages[i].payload, std::to_string(i + 1));
  }
  EXPECT_EQ(subscriber.messages.size(), 10'000U);
  EXPECT_TRUE(peer.downs.empty()) << peer.lastDown();
}

TEST_F(MosquittoBrokerTest, SpeaksTheOlderVersionWhereThatIsConfigured) {
  startBroker();
  BrokerSettings settings = settingsFor(mosquitto.port());
  settings.config.protocol = 4;
  BrokerPeer peer(loop, settings);
  peer.start({"numbers"});
  ASSERT_TRUE(peer.comesUp());
  EXPECT_EQ(peer.ups.front().protocol, 4);
  EXPECT_EQ(peer.ups.front().window, 100U);
  publishAll(peer, 1000);
  EXPECT_TRUE(peer.receives(1000));
  EXPECT_TRUE(peer.downs.empty()) << peer.lastDown();
}

TEST_F(MosquittoBrokerTest, WhatGoesAlongWithAMessageArrives) {
  startBroker();
  BrokerPeer peer(loop, settingsFor(mosquitto.port()));
  peer.start({"commands/#"});
  ASSERT_TRUE(peer.comesUp());
  Message message{"commands/a", std::string("\x00\xFF", 2)};
  message.contentType = "application/json";
  message.responseTopic = "answers/1";
  message.correlationData = std::string("\x01\x00\x02", 3);
  message.expirySeconds = 60;
  EXPECT_TRUE(peer.isAcknowledged(peer.broker->publish(message)));
  ASSERT_TRUE(peer.receives(1));
  EXPECT_EQ(peer.messages.front(), message);
}

TEST_F(MosquittoBrokerTest, AMessageWithoutAnythingAlongHasNothingAlong) {
  startBroker();
  BrokerPeer peer(loop, settingsFor(mosquitto.port()));
  peer.start({"a"});
  ASSERT_TRUE(peer.comesUp());
  const Message message{"a", ""};
  EXPECT_TRUE(peer.isAcknowledged(peer.broker->publish(message)));
  ASSERT_TRUE(peer.receives(1));
  EXPECT_EQ(peer.messages.front(), message);
}

TEST_F(MosquittoBrokerTest, ARetainedMessageLooksRetainedWhetherItCameBeforeOrAfter) {
  startBroker();
  BrokerPeer peer(loop, settingsFor(mosquitto.port()));
  peer.start({"a/#"});
  ASSERT_TRUE(peer.comesUp());
  peer.broker->publish({.topic = "a/b", .payload = "x", .retain = true});
  ASSERT_TRUE(peer.receives(1));
  EXPECT_TRUE(peer.messages[0].retain);
  BrokerPeer later(loop, settingsFor(mosquitto.port(), "later"));
  later.start({"a/#"});
  ASSERT_TRUE(later.receives(1));
  EXPECT_TRUE(later.messages[0].retain);
  peer.broker->publish({"a/c", "y"});
  ASSERT_TRUE(later.receives(2));
  EXPECT_FALSE(later.messages[1].retain);
}

TEST_F(MosquittoBrokerTest, AMessageOfQualityNoughtCountsUntilItIsWithTheSystem) {
  startBroker();
  BrokerPeer peer(loop, settingsFor(mosquitto.port()));
  peer.start({"a"});
  ASSERT_TRUE(peer.comesUp());
  EXPECT_TRUE(peer.isAcknowledged(peer.broker->publish({"a", "x", 0})));
  EXPECT_TRUE(peer.receives(1));
}

TEST_F(MosquittoBrokerTest, ATopicThatCannotBePublishedToIsRefusedAndTheNextIsNot) {
  startBroker();
  BrokerPeer peer(loop, settingsFor(mosquitto.port()));
  peer.start();
  ASSERT_TRUE(peer.comesUp());
  const auto wrong = peer.broker->publish({"a/#", "x"});
  ASSERT_TRUE(peer.isAcknowledged(wrong));
  EXPECT_TRUE(peer.acknowledged[*wrong]);
  const auto right = peer.broker->publish({"a/b", "x"});
  ASSERT_TRUE(peer.isAcknowledged(right));
  EXPECT_FALSE(peer.acknowledged[*right]) << *peer.acknowledged[*right];
}

TEST_F(MosquittoBrokerTest, NothingIsTakenWhileThereIsNoConnection) {
  startBroker();
  BrokerPeer peer(loop, settingsFor(mosquitto.port()));
  EXPECT_FALSE(peer.broker->publish({"a", "x"}));
  peer.start();
  EXPECT_FALSE(peer.broker->publish({"a", "x"}));
  ASSERT_TRUE(peer.comesUp());
  EXPECT_TRUE(peer.broker->publish({"a", "x"}));
  mosquitto.kill();
  ASSERT_TRUE(peer.goesDown());
  EXPECT_FALSE(peer.broker->publish({"a", "x"}));
}

TEST_F(MosquittoBrokerTest, ConnectsAndSubscribesAgainAfterTheBrokerIsKilled) {
  startBroker();
  BrokerPeer peer(loop, settingsFor(mosquitto.port()));
  peer.start({"a", "b"});
  for (std::size_t round = 1; round <= 3; ++round) {
    ASSERT_TRUE(peer.comesUp(round));
    EXPECT_TRUE(peer.isAcknowledged(peer.broker->publish({"b", "x"})));
    EXPECT_TRUE(peer.receives(round)) << "it has not subscribed again";
    const std::size_t downs = peer.downs.size();
    mosquitto.kill();
    ASSERT_TRUE(peer.goesDown(downs + 2));
    EXPECT_THAT(peer.downs[downs], HasSubstr("the connection is lost"));
    EXPECT_THAT(peer.downs[downs + 1], HasSubstr("nobody listens there"));
    ASSERT_FALSE(mosquitto.start());
  }
}

TEST_F(MosquittoBrokerTest, WithTheConnectionEndsWhatWaitedAndTheNextHasItsWholeWindow) {
  startBroker();
  BrokerPeer peer(loop, settingsFor(mosquitto.port()));
  peer.start({"a"});
  ASSERT_TRUE(peer.comesUp());
  mosquitto.freeze();
  while (peer.broker->publish({"a", "old"})) {
  }
  mosquitto.kill();
  ASSERT_TRUE(peer.goesDown());
  ASSERT_FALSE(mosquitto.start());
  ASSERT_TRUE(peer.comesUp(2));
  std::set<std::optional<PublishId>> ids;
  while (const auto id = peer.broker->publish({"a", "new"})) ids.insert(id);
  EXPECT_EQ(ids.size(), peer.ups.back().window);
  EXPECT_TRUE(waitUntil(loop, [&] { return peer.acknowledged.size() == ids.size(); }));
  ASSERT_TRUE(peer.receives(ids.size()));
  for (const Message& message : peer.messages) EXPECT_EQ(message.payload, "new");
}

TEST_F(MosquittoBrokerTest, TheWillIsPublishedWhenItIsDropped) {
  startBroker();
  BrokerPeer watcher(loop, settingsFor(mosquitto.port(), "watcher"));
  watcher.start({"state"});
  ASSERT_TRUE(watcher.comesUp());
  BrokerPeer peer(loop, settingsFor(mosquitto.port()));
  Message will{.topic = "state", .payload = "offline", .retain = true};
  will.contentType = "application/json";
  peer.start({}, will);
  ASSERT_TRUE(peer.comesUp());
  peer.drop();
  ASSERT_TRUE(watcher.receives(1));
  EXPECT_EQ(watcher.messages.front(), will);
}

TEST_F(MosquittoBrokerTest, StopWaitsForTheAcknowledgementsAndTheWillIsNotPublished) {
  startBroker();
  BrokerPeer watcher(loop, settingsFor(mosquitto.port(), "watcher"));
  watcher.start({"#"});
  ASSERT_TRUE(watcher.comesUp());
  BrokerPeer peer(loop, settingsFor(mosquitto.port()));
  peer.start({}, Message{"state", "will"});
  ASSERT_TRUE(peer.comesUp());
  const auto last = peer.broker->publish({"state", "farewell"});
  bool done = false;
  peer.broker->stop(60, [&] { done = true; });
  EXPECT_FALSE(done) << "nobody is called from inside an operation";
  EXPECT_FALSE(peer.broker->publish({"a", "x"}));
  ASSERT_TRUE(waitUntil(loop, [&] { return done; }));
  EXPECT_TRUE(last && peer.acknowledged.contains(*last));
  EXPECT_TRUE(peer.downs.empty()) << peer.lastDown();
  peer.drop();
  BrokerPeer marker(loop, settingsFor(mosquitto.port(), "marker"));
  marker.start();
  ASSERT_TRUE(marker.comesUp());
  marker.broker->publish({"marker", ""});
  ASSERT_TRUE(watcher.receives(2));
  EXPECT_EQ(watcher.messages[0].payload, "farewell");
  EXPECT_EQ(watcher.messages[1].topic, "marker");
}

TEST_F(MosquittoBrokerTest, StopEndsAtItsLimitWhenTheBrokerIsSilent) {
  startBroker();
  BrokerPeer peer(loop, settingsFor(mosquitto.port()));
  peer.start();
  ASSERT_TRUE(peer.comesUp());
  mosquitto.freeze();
  const auto id = peer.broker->publish({"a", "x"});
  ASSERT_TRUE(id);
  bool done = false;
  peer.broker->stop(0.05, [&] { done = true; });
  EXPECT_TRUE(waitUntil(loop, [&] { return done; }));
  EXPECT_FALSE(peer.acknowledged.contains(*id));
}

TEST_F(MosquittoBrokerTest, StopWithoutAConnectionIsDoneAtOnce) {
  BrokerPeer peer(loop, settingsFor(1));
  bool done = false;
  peer.broker->stop(60, [&] { done = true; });
  EXPECT_TRUE(waitUntil(loop, [&] { return done; }));
  BrokerPeer started(loop, settingsFor(1, "started"));
  started.start();
  bool alsoDone = false;
  started.broker->stop(60, [&] { alsoDone = true; });
  EXPECT_TRUE(waitUntil(loop, [&] { return alsoDone; }));
}

TEST_F(MosquittoBrokerTest, MayBeDroppedInAnyHandlerAndCallsNoOtherAfterwards) {
  startBroker();
  int calls = 0;
  std::unique_ptr<MosquittoBroker> broker;
  const auto dropIn = [&](BrokerHandlers handlers) {
    calls = 0;
    broker = std::make_unique<MosquittoBroker>(loop, settingsFor(mosquitto.port()));
    broker->start({"a"}, std::nullopt, std::move(handlers));
    EXPECT_TRUE(waitUntil(loop, [&] { return calls > 0; }));
    loop->runFor(Time::zero());
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(broker);
  };
  const auto drop = [&](auto&&...) {
    ++calls;
    broker.reset();
  };
  // So much that several events are taken at a time.
  const auto publishMuch = [&](const BrokerUp&) {
    while (broker->publish({"a", "x"})) {
    }
  };
  dropIn({.onUp = drop, .onDown = drop});
  dropIn({.onUp = publishMuch, .onAcknowledged = drop});
  dropIn({.onUp = publishMuch, .onMessage = drop});
  dropIn({.onUp = [&](const BrokerUp&) { mosquitto.kill(); }, .onDown = drop});
}

TEST_F(MosquittoBrokerTest, ASecondGatewayOfTheSameNameIsNamedAsTheProbableReason) {
  startBroker();
  BrokerPeer first(loop, settingsFor(mosquitto.port(), "twin"));
  first.start();
  ASSERT_TRUE(first.comesUp());
  BrokerPeer second(loop, settingsFor(mosquitto.port(), "twin"));
  second.start();
  for (const BrokerPeer* peer : {&first, &second}) {
    EXPECT_TRUE(waitUntil(loop, [&] {
      return testing::Value(peer->lastDown(),
                            HasSubstr("another client with the id kestrin-gateway-twin"));
    })) << peer->lastDown();
  }
}

}  // namespace
}  // namespace kestrin::gateway
