// What a network and a broker can do wrong, and the one line that says so.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include "gateway/broker/BrokerPeer.h"
#include "gateway/support/MosquittoProcess.h"
#include "gateway/support/SilentProxy.h"
#include "gateway/support/StandInBroker.h"

namespace kestrin::gateway {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr char kConnect = 0x10;
constexpr char kSubscribe = static_cast<char>(0x82);

class MosquittoFaultsTest : public testing::Test {
 protected:
  void startBroker(const std::string& lines = "allow_anonymous true\n") {
    mosquitto.configure(lines);
    const auto failure = mosquitto.start();
    ASSERT_FALSE(failure) << *failure;
  }
  /// The line with which an attempt fails.
  std::string failureWith(const BrokerSettings& settings) {
    BrokerPeer peer(loop, settings);
    peer.start({"a"});
    EXPECT_TRUE(peer.goesDown());
    EXPECT_TRUE(peer.ups.empty());
    EXPECT_THAT(peer.lastDown(), Not(HasSubstr("\n")));
    return peer.lastDown();
  }

  Loop loop = std::make_shared<MainRunLoop>();
  MosquittoProcess mosquitto;
};

TEST_F(MosquittoFaultsTest, SaysThatNobodyListens) {
  const std::uint16_t port = freePort();
  EXPECT_EQ(failureWith(settingsFor(port)),
            "broker 127.0.0.1:" + std::to_string(port) +
                ": nobody listens there (connection refused); does it run?");
}

TEST_F(MosquittoFaultsTest, SaysThatANameIsNotFound) {
  BrokerSettings settings = settingsFor(1883);
  settings.config.host = "broker.invalid";
  EXPECT_THAT(failureWith(settings), HasSubstr("its name is not found"));
}

TEST_F(MosquittoFaultsTest, SaysOnceWhyNoConnectionIsTriedAtAll) {
  BrokerSettings settings = settingsFor(1883, "");
  EXPECT_THAT(failureWith(settings), HasSubstr("no name for the client id"));
  settings = settingsFor(1883);
  settings.config.host = "192.0.2.1";
  settings.config.user = "gate";
  settings.config.passwordFile = "/somewhere";
  EXPECT_THAT(failureWith(settings), HasSubstr("not sent over a connection that is not encrypted"));
}

TEST_F(MosquittoFaultsTest, SaysThatThePasswordIsWrongOrCannotBeRead) {
  const std::string users = mosquitto.addUser("gate", "right");
  startBroker("allow_anonymous false\npassword_file " + users + "\n");
  BrokerSettings settings = settingsFor(mosquitto.port());
  EXPECT_THAT(failureWith(settings), HasSubstr("it refuses the connection: not authorised"));
  settings.config.protocol = 4;
  EXPECT_THAT(failureWith(settings), HasSubstr("it refuses the connection: not authorised"));
  settings.config.protocol = 0;
  settings.config.user = "gate";
  settings.config.passwordFile = mosquitto.folder().write("secret", "wrong\n");
  EXPECT_THAT(failureWith(settings), HasSubstr("it refuses the connection: not authorised"));
  settings.config.passwordFile = mosquitto.folder().pathOf("missing");
  EXPECT_THAT(failureWith(settings), HasSubstr("the password cannot be read from"));
  settings.config.passwordFile = mosquitto.folder().write("secret", "right\n");
  BrokerPeer peer(loop, settings);
  peer.start();
  EXPECT_TRUE(peer.comesUp()) << peer.lastDown();
}

TEST_F(MosquittoFaultsTest, APublicationThatTheAccessListForbidsIsRefusedAndTheConnectionStays) {
  startBroker("allow_anonymous true\nacl_file " +
              mosquitto.folder().write("acl", "topic readwrite mine/#\n") + "\n");
  BrokerPeer peer(loop, settingsFor(mosquitto.port()));
  peer.start({"mine/#"});
  ASSERT_TRUE(peer.comesUp());
  const auto forbidden = peer.broker->publish({"yours/a", "x"});
  const auto allowed = peer.broker->publish({"mine/a", "x"});
  ASSERT_TRUE(peer.isAcknowledged(forbidden));
  ASSERT_TRUE(peer.isAcknowledged(allowed));
  EXPECT_THAT(peer.acknowledged[*forbidden].value_or(""), HasSubstr("not authorised"));
  EXPECT_FALSE(peer.acknowledged[*allowed]);
  EXPECT_TRUE(peer.receives(1));
  EXPECT_TRUE(peer.downs.empty()) << peer.lastDown();
}

TEST_F(MosquittoFaultsTest, ARefusedSubscriptionIsNamedAndNothingComesUp) {
  const StandInBroker broker([](const std::string& packet) -> std::optional<std::string> {
    if (packet[0] == kConnect) return std::string("\x20\x03\x00\x00\x00", 5);
    if (packet[0] != kSubscribe) return std::nullopt;
    return std::string("\x90\x04", 2) + subscriptionIdIn(packet) + std::string("\x00\x87", 2);
  });
  EXPECT_THAT(failureWith(settingsFor(broker.port())),
              HasSubstr("it refuses the subscription to a: not authorised"));
}

class OlderBroker : public MosquittoFaultsTest,
                    public testing::WithParamInterface<std::optional<std::string>> {
 protected:
  /// Takes 3.1.1 only and answers another version with `refusal`.
  StandInBroker::Answer olderOnly() {
    return [this](const std::string& packet) -> std::optional<std::string> {
      if (packet[0] == kConnect) {
        const std::scoped_lock lock(mutex);
        versions.push_back(protocolIn(packet));
        if (versions.back() != 4) return GetParam();
        return std::string("\x20\x02\x00\x00", 4);
      }
      if (packet[0] != kSubscribe) return std::nullopt;
      return std::string("\x90\x03", 2) + subscriptionIdIn(packet) + "\x01";
    };
  }
  std::vector<int> versionsSeen() {
    const std::scoped_lock lock(mutex);
    return versions;
  }

  std::mutex mutex;
  std::vector<int> versions;
};

TEST_P(OlderBroker, IsSpokenToInItsOwnVersion) {
  const StandInBroker broker(olderOnly());
  BrokerPeer peer(loop, settingsFor(broker.port()));
  peer.start({"a"});
  ASSERT_TRUE(peer.comesUp()) << peer.lastDown();
  EXPECT_EQ(peer.ups.front().protocol, 4);
  EXPECT_TRUE(peer.downs.empty()) << peer.lastDown();
  EXPECT_EQ(versionsSeen(), (std::vector<int>{5, 4}));
}

TEST_P(OlderBroker, IsAFailureWhereTheConfigurationWantsTheNewerVersion) {
  const StandInBroker broker(olderOnly());
  BrokerSettings settings = settingsFor(broker.port());
  settings.config.protocol = 5;
  EXPECT_THAT(failureWith(settings), HasSubstr("it does not speak MQTT 5"));
}

INSTANTIATE_TEST_SUITE_P(Refusals, OlderBroker,
                         testing::Values(std::string("\x20\x02\x00\x01", 4),
                                         std::string("\x20\x03\x00\x84\x00", 5)));

TEST_F(MosquittoFaultsTest, ABrokerThatEndsTheConnectionIsQuotedWithItsReason) {
  const StandInBroker broker([](const std::string& packet) -> std::optional<std::string> {
    if (packet[0] != kConnect) return std::nullopt;
    return std::string("\x20\x03\x00\x00\x00\xE0\x02\x8B\x00", 9);
  });
  BrokerPeer peer(loop, settingsFor(broker.port()));
  peer.start();
  ASSERT_TRUE(peer.goesDown());
  EXPECT_THAT(peer.lastDown(), HasSubstr("it ends the connection: it shuts down"));
}

TEST_F(MosquittoFaultsTest, ABrokerThatSaysThatAnotherClientHasTheIdIsQuotedAtOnce) {
  const StandInBroker broker([](const std::string& packet) -> std::optional<std::string> {
    if (packet[0] != kConnect) return std::nullopt;
    return std::string("\x20\x03\x00\x00\x00\xE0\x02\x8E\x00", 9);
  });
  BrokerPeer peer(loop, settingsFor(broker.port(), "twin"));
  peer.start();
  ASSERT_TRUE(peer.goesDown());
  EXPECT_THAT(peer.lastDown(), HasSubstr("another client with the id kestrin-gateway-twin"));
}

TEST_F(MosquittoFaultsTest, WhatIsNotABrokerIsAFailureInOneLine) {
  const StandInBroker broker([](const std::string&) { return std::string(200, 'H'); });
  EXPECT_THAT(failureWith(settingsFor(broker.port())), HasSubstr("broker 127.0.0.1"));
}

TEST_F(MosquittoFaultsTest, AConnectionThatGoesSilentIsNoticedAndMadeAgain) {
  startBroker();
  SilentProxy proxy(mosquitto.port());
  BrokerSettings settings = settingsFor(proxy.port());
  settings.config.keepAlive = std::chrono::seconds(5);
  BrokerPeer peer(loop, settings);
  peer.start();
  ASSERT_TRUE(peer.comesUp());
  proxy.silenceThoseConnected();
  EXPECT_TRUE(peer.broker->publish({"a", "x"}));
  ASSERT_TRUE(peer.goesDown());
  EXPECT_THAT(peer.lastDown(), HasSubstr("silent for longer than the keep alive"));
  ASSERT_TRUE(peer.comesUp(2));
  EXPECT_TRUE(peer.isAcknowledged(peer.broker->publish({"a", "x"})));
}

/// Takes no further connection: whoever comes gets no answer, as from a host that is switched off.
class FullQueue {
 public:
  FullQueue() : listening_(listenOnLoopback(0)) {
    for (int i = 0; i < 4; ++i) waiting_.push_back(beginToConnectTo(port()));
  }
  [[nodiscard]] std::uint16_t port() const { return portOf(listening_); }
  /// Lets those go who waited first, and returns who comes then.
  Socket acceptLate() {
    while (isSomebodyThere(0)) accept().close();
    waiting_.clear();
    return isSomebodyThere(kLateMilliseconds) ? accept() : Socket();
  }

 private:
  static constexpr int kLateMilliseconds = 60'000;
  [[nodiscard]] bool isSomebodyThere(int milliseconds) const {
    pollfd watched{listening_.number(), POLLIN, 0};
    return ::poll(&watched, 1, milliseconds) == 1;
  }
  Socket accept() const {
    return Socket(::accept4(listening_.number(), nullptr, nullptr, SOCK_CLOEXEC));
  }

  Socket listening_;
  std::vector<Socket> waiting_;
};

TEST_F(MosquittoFaultsTest, AHostThatDoesNotAnswerIsGivenUpAfterTheLimit) {
  const FullQueue host;
  BrokerSettings settings = settingsFor(host.port());
  settings.attemptLimit = std::chrono::seconds(1);
  EXPECT_THAT(failureWith(settings), HasSubstr("no answer within 1 s"));
}

TEST_F(MosquittoFaultsTest, DroppingWhileAHostDoesNotAnswerDoesNotWaitForIt) {
  const FullQueue host;
  BrokerPeer peer(loop, settingsFor(host.port()));
  peer.start();
  loop->runFor(std::chrono::milliseconds(50));
  const auto before = std::chrono::steady_clock::now();
  peer.drop();
  // The system itself gives up after two minutes.
  EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(20));
  EXPECT_TRUE(peer.downs.empty());
}

TEST_F(MosquittoFaultsTest, WhatWasGivenUpDoesNotReachTheBrokerLater) {
  FullQueue host;
  BrokerSettings settings = settingsFor(host.port());
  settings.attemptLimit = std::chrono::milliseconds(300);
  settings.pauses.first = std::chrono::hours(1);
  settings.pauses.longest = std::chrono::hours(1);
  BrokerPeer peer(loop, settings);
  peer.start();
  ASSERT_TRUE(peer.goesDown());
  // The system still tries to connect, and gets through now.
  const Socket late = host.acceptLate();
  ASSERT_TRUE(late);
  char byte = 0;
  EXPECT_EQ(::recv(late.number(), &byte, 1, 0), 0) << "it says something, and is not closed";
}

TEST_F(MosquittoFaultsTest, DroppingAtAnyMomentOfConnectingLeavesNothingBehind) {
  startBroker();
  constexpr int kRounds = 100;
  for (int round = 0; round < kRounds; ++round) {
    BrokerPeer peer(loop, settingsFor(mosquitto.port()));
    peer.start({"a"});
    for (int turn = 0; turn < round % 10; ++turn) {
      loop->runOneTurn();
      std::this_thread::yield();
    }
  }
  BrokerPeer peer(loop, settingsFor(mosquitto.port(), "last"));
  peer.start({"a"});
  EXPECT_TRUE(peer.comesUp()) << peer.lastDown();
}

}  // namespace
}  // namespace kestrin::gateway
