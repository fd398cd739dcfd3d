// The built program in service: gateway and consumer against a real broker.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <sstream>

#include "gateway/commands/GatewayProgram.h"
#include "gateway/service/NotifySocket.h"
#include "gateway/support/LoopbackSockets.h"
#include "gateway/support/MosquittoProcess.h"
#include "gateway/support/TestCertificates.h"
#include "gateway/support/TestEnvironment.h"

namespace kestrin::gateway {
namespace {

class GatewayServiceTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(broker.start(), std::nullopt); }

  void configure(const std::string& readers, std::optional<std::uint16_t> port = std::nullopt) {
    config =
        folder.write("gateway.toml",
                     readers +
                         "[gateway]\nname = \"hall-1\"\nconsumers = [\"wms\"]\n"
                         "[radio]\nkind = \"simulated\"\nscript = \"" +
                         folder.write("readers.txt", "0.02 KVR-0417\n0.03 KVR-Q62T 0012\n") +
                         "\"\n[log]\ndirectory = \"log\"\n[broker]\nhost = \"127.0.0.1\"\nport = " +
                         std::to_string(port.value_or(broker.port())) + "\n" +
                         (readers.empty() ? kReaders : ""));
  }
  void startGateway() {
    gateway = std::make_unique<GatewayProgram>(
        folder, "gateway", std::vector<std::string>{"run", config, "--taken", taken});
  }
  void startConsumer() {
    consumer = std::make_unique<GatewayProgram>(
        folder, "consumer",
        std::vector<std::string>{"consume", "--gateway", "hall-1", "--name", "wms", "--state",
                                 folder.pathOf("wms.state"), "--host", "127.0.0.1", "--port",
                                 std::to_string(broker.port())});
  }

  static std::size_t linesOf(const std::string& text) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
  }
  bool hasTaken(std::size_t more) {
    const std::size_t before = linesOf(contentsOf(taken));
    return comesTrue([&] { return linesOf(contentsOf(taken)) >= before + more; });
  }
  /// The numbers of the lines that the consumer has printed.
  std::vector<std::string> printedNumbers() const {
    std::vector<std::string> numbers;
    std::istringstream lines(consumer->output());
    for (std::string line; std::getline(lines, line) && !lines.eof();) {
      const std::size_t begin = line.find("\"n\":") + 4;
      numbers.push_back(line.substr(begin, line.find(',', begin) - begin));
    }
    return numbers;
  }
  std::set<std::string> takenNumbers() const {
    std::set<std::string> numbers;
    std::istringstream lines(contentsOf(taken));
    std::string log;
    std::string bytes;
    for (std::string number; lines >> log >> number >> bytes;) numbers.insert(number);
    return numbers;
  }
  bool everythingArrives() {
    return comesTrue([this] {
      const auto printed = printedNumbers();
      const std::set<std::string> there(printed.begin(), printed.end());
      const auto all = takenNumbers();
      return std::includes(there.begin(), there.end(), all.begin(), all.end());
    });
  }
  /// Takes the readers away, so that nothing new comes.
  void takeReadersAway() {
    configure("reader = []\n");
    gateway->signal(SIGHUP);
    EXPECT_TRUE(comesTrue([this] { return said(*gateway, "the configuration was read again"); }));
  }
  static bool said(const GatewayProgram& program, const std::string& text) {
    return program.errors().find(text) != std::string::npos;
  }

  static constexpr const char* kReaders =
      "[[reader]]\nname = \"KVR-0417\"\n[[reader]]\nname = \"KVR-Q62T 0012\"\n";
  MosquittoProcess broker;
  const TestFolder folder;
  const std::string taken = folder.pathOf("taken");
  std::string config;
  std::unique_ptr<GatewayProgram> gateway;
  std::unique_ptr<GatewayProgram> consumer;
};

TEST_F(GatewayServiceTest, WhatReadersSendIsPrintedByTheConsumerAndBothEndCleanly) {
  configure("");
  startConsumer();
  startGateway();
  ASSERT_TRUE(hasTaken(50)) << gateway->errors();
  takeReadersAway();
  EXPECT_TRUE(everythingArrives()) << consumer->errors();
  gateway->signal(SIGTERM);
  EXPECT_EQ(gateway->finish(), 0) << gateway->errors();
  consumer->signal(SIGINT);
  EXPECT_EQ(consumer->finish(), 0) << consumer->errors();
  const auto printed = printedNumbers();
  EXPECT_EQ(std::set<std::string>(printed.begin(), printed.end()).size(), printed.size());
  EXPECT_TRUE(said(*consumer, "lost 0")) << consumer->errors();
  EXPECT_TRUE(said(*gateway, "stopped")) << gateway->errors();
}

TEST_F(GatewayServiceTest, NothingIsLostOrPrintedTwiceWhenBrokerAndGatewayAreKilled) {
  configure("");
  startConsumer();
  startGateway();
  ASSERT_TRUE(hasTaken(50)) << gateway->errors();
  broker.kill();
  ASSERT_TRUE(hasTaken(50)) << gateway->errors();
  ASSERT_EQ(broker.start(), std::nullopt);
  ASSERT_TRUE(hasTaken(50)) << gateway->errors();
  gateway->kill();
  startGateway();
  ASSERT_TRUE(hasTaken(50)) << gateway->errors();
  takeReadersAway();
  EXPECT_TRUE(everythingArrives()) << consumer->errors();
  const auto printed = printedNumbers();
  EXPECT_EQ(std::set<std::string>(printed.begin(), printed.end()).size(), printed.size());
}

TEST_F(GatewayServiceTest, AConsumerThatIsStartedAgainGoesOnWhereItWas) {
  configure("");
  startConsumer();
  startGateway();
  ASSERT_TRUE(hasTaken(50)) << gateway->errors();
  ASSERT_TRUE(comesTrue([this] { return linesOf(consumer->output()) > 20; }));
  consumer->signal(SIGTERM);
  EXPECT_EQ(consumer->finish(), 0) << consumer->errors();
  ASSERT_TRUE(hasTaken(50)) << gateway->errors();
  startConsumer();
  takeReadersAway();
  EXPECT_TRUE(everythingArrives()) << consumer->errors();
  const auto printed = printedNumbers();
  EXPECT_EQ(std::set<std::string>(printed.begin(), printed.end()).size(), printed.size());
}

TEST_F(GatewayServiceTest, AKilledConsumerLosesNothingAndWhatItPrintsTwiceIsTheSame) {
  configure("");
  startConsumer();
  startGateway();
  for (int kills = 0; kills < 3; ++kills) {
    const std::size_t before = linesOf(consumer->output());
    ASSERT_TRUE(comesTrue([&] { return linesOf(consumer->output()) > before + 30; }));
    consumer->kill();
    startConsumer();
  }
  ASSERT_TRUE(hasTaken(20)) << gateway->errors();
  takeReadersAway();
  EXPECT_TRUE(everythingArrives()) << consumer->errors();
  std::istringstream lines(consumer->output());
  std::set<std::string> distinct;
  for (std::string line; std::getline(lines, line);) distinct.insert(line);
  EXPECT_EQ(distinct.size(), takenNumbers().size());
}

TEST_F(GatewayServiceTest, AConsumerBelievesTheBrokerThatTheGivenAuthorityHasSigned) {
  TestCertificates certificates;
  const CertificateFiles server = certificates.makeFor("localhost");
  ASSERT_FALSE(certificates.failure()) << *certificates.failure();
  MosquittoProcess encrypted;
  encrypted.configure("allow_anonymous true\ncertfile " + server.certificate + "\nkeyfile " +
                      server.key + "\n");
  ASSERT_EQ(encrypted.start(), std::nullopt);
  std::vector<std::string> arguments{"consume",
                                     "--gateway",
                                     "hall-1",
                                     "--name",
                                     "wms",
                                     "--state",
                                     folder.pathOf("tls.state"),
                                     "--tls",
                                     "--port",
                                     std::to_string(encrypted.port())};
  {
    const GatewayProgram stranger(folder, "stranger", arguments);
    EXPECT_TRUE(comesTrue([&] { return said(stranger, "not signed by an authority"); }))
        << stranger.errors();
  }
  arguments.insert(arguments.end(), {"--ca", certificates.authority()});
  const GatewayProgram friendly(folder, "friendly", arguments);
  EXPECT_TRUE(comesTrue([&] { return said(friendly, "the broker is there"); }))
      << friendly.errors();
}

TEST_F(GatewayServiceTest, ASecondConsumerOnTheSameStateIsRefused) {
  startConsumer();
  ASSERT_TRUE(comesTrue([this] { return said(*consumer, "the broker is there"); }));
  const ProgramOutcome second =
      runProgram({"consume", "--gateway", "hall-1", "--name", "wms", "--state",
                  folder.pathOf("wms.state"), "--port", std::to_string(broker.port())});
  EXPECT_EQ(second.status, 1);
  EXPECT_NE(second.errors.find("another consumer has it"), std::string::npos) << second.errors;
}

TEST_F(GatewayServiceTest, AConfigurationThatHasGoneWrongLeavesTheGatewayAsItWas) {
  configure("");
  startGateway();
  ASSERT_TRUE(hasTaken(5)) << gateway->errors();
  folder.write("gateway.toml", "nonsense");
  gateway->signal(SIGHUP);
  EXPECT_TRUE(comesTrue([this] { return said(*gateway, "stays as it was"); }));
  EXPECT_TRUE(hasTaken(5)) << gateway->errors();
}

TEST_F(GatewayServiceTest, ALogThatAnEarlierReleaseLeftIsPublishedAndGoneOnWith) {
  std::filesystem::copy(KESTRIN_STORED_LOGS "/1/killed", folder.pathOf("log"),
                        std::filesystem::copy_options::recursive);
  configure("");
  startConsumer();
  startGateway();
  ASSERT_TRUE(hasTaken(20)) << gateway->errors();
  takeReadersAway();
  EXPECT_TRUE(everythingArrives()) << consumer->errors();
  const auto printed = printedNumbers();
  std::set<std::string> expected = takenNumbers();
  EXPECT_EQ(expected.count("28"), 0U);
  EXPECT_EQ(expected.count("29"), 1U);
  // Up to 4 everything was forgotten, and 15 was never taken.
  for (int number = 5; number <= 28; ++number) {
    if (number != 15) expected.insert(std::to_string(number));
  }
  EXPECT_EQ(std::set<std::string>(printed.begin(), printed.end()), expected);
}

TEST_F(GatewayServiceTest, TheServiceManagerHearsOfItAndOfItsLoopThoughTheBrokerSaysNothing) {
  // Whoever connects is never answered.
  const Socket listener = listenOnLoopback();
  NotifySocket manager(folder.pathOf("notify"));
  setVariable("WATCHDOG_USEC", "200000");
  configure("", portOf(listener));
  startGateway();
  std::string heard;
  const auto hears = [&](const std::string& text, int times) {
    return comesTrue([&] {
      heard += manager.all();
      int count = 0;
      for (auto at = heard.find(text); at != std::string::npos; at = heard.find(text, at + 1)) {
        ++count;
      }
      return count >= times;
    });
  };
  EXPECT_TRUE(hears("READY=1\n", 1)) << heard;
  EXPECT_TRUE(hears("WATCHDOG=1\n", 20)) << heard;
  EXPECT_TRUE(hears("STATUS=2 of 2 readers plugged in, no broker, ", 1)) << heard;
  gateway->signal(SIGHUP);
  EXPECT_TRUE(hears("RELOADING=1\n", 1)) << heard;
  EXPECT_TRUE(hears("READY=1\n", 2)) << heard;
  gateway->signal(SIGTERM);
  EXPECT_EQ(gateway->finish(), 0) << gateway->errors();
  EXPECT_TRUE(hears("STOPPING=1\n", 1)) << heard;
}

TEST_F(GatewayServiceTest, WithoutABrokerTheGatewayStillTakesAndStillEndsCleanly) {
  broker.kill();
  configure("");
  startGateway();
  ASSERT_TRUE(hasTaken(20)) << gateway->errors();
  gateway->signal(SIGTERM);
  EXPECT_EQ(gateway->finish(), 0) << gateway->errors();
  EXPECT_TRUE(said(*gateway, "no broker")) << gateway->errors();
}

}  // namespace
}  // namespace kestrin::gateway
