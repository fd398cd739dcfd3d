// The simulated readers of a gateway: their script, and what they send.
#include "tools/gateway/commands/SimulatedReaders.h"

#include <KestrinBLESDK/RcpFrame.h>
#include <KestrinBLESDK/Reader.h>
#include <gtest/gtest.h>
#include <kestrin/simulated/SimulatedPlatform.h>

#include <set>

namespace kestrin::gateway {
namespace {

using std::chrono::milliseconds;

class SilentLog final : public NSLogSink {
 public:
  [[nodiscard]] bool isListening() const noexcept override { return false; }
  void write(std::string_view /*line*/) noexcept override {}
};

simulated::Options options() {
  simulated::Options options;
  options.virtualTime = true;
  options.log = std::make_shared<SilentLog>();
  return options;
}

/// What readers say of themselves when they are asked, which is the same each time.
bool isAnswer(const NSData& bytes) { return bytes.length() > 1 && bytes.bytes()[1] == 0x01; }

TEST(SimulatedReaderScript, HasALineForEachReader) {
  std::string error;
  const auto plans =
      simulatedReadersOf("# pause name\n\n0.05 KVR-0417\n2 KVR-Q62T 0012\n", "readers.txt", error);
  ASSERT_TRUE(plans) << error;
  EXPECT_EQ(*plans, (std::vector<SimulatedReaderPlan>{{"KVR-0417", milliseconds(50)},
                                                      {"KVR-Q62T 0012", milliseconds(2000)}}));
  EXPECT_TRUE(simulatedReadersOf("1 KVR-1", "readers.txt", error)) << "no end of line at the end";
}

TEST(SimulatedReaderScript, SaysInWhichLineItIsWrong) {
  for (const std::string line : {"KVR-0417", "1", "1 ", "x KVR-1", "0 KVR-1", "-1 KVR-1",
                                 "nan KVR-1", "inf KVR-1", "3601 KVR-1", "1s KVR-1", " KVR-1"}) {
    std::string error;
    EXPECT_FALSE(simulatedReadersOf("1 KVR-1\n" + line + "\n", "readers.txt", error)) << line;
    EXPECT_EQ(error.find("readers.txt:2: "), 0U) << error;
  }
}

TEST(SimulatedReaderScript, WithoutAReaderIsRefused) {
  std::string error;
  EXPECT_FALSE(simulatedReadersOf("# nothing\n", "readers.txt", error));
  EXPECT_EQ(error.find("readers.txt: has no reader"), 0U) << error;
}

TEST(SimulatedReaders, SendWhatReachesTheApplicationOnceEachAndNothingWithoutALink) {
  simulated::SimulatedPlatform simulated(options());
  std::vector<std::string> sent;
  std::vector<std::string> came;
  const SimulatedReaders readers(
      simulated.platform().mainRunLoop, simulated.radio(),
      {{"KVR-0417", milliseconds(100)}, {"KVR-Q62T 0012", milliseconds(150)}}, 7,
      [&](const std::string& name, const NSData& bytes) {
        sent.push_back(name + bytes.description());
      });
  simulated.runLoop().runFor(std::chrono::seconds(10));
  EXPECT_TRUE(sent.empty());
  std::vector<std::unique_ptr<Reader>> held;
  for (const std::string name : {"KVR-0417", "KVR-Q62T 0012"}) {
    ReaderHandlers handlers;
    handlers.onFrame = [&, name](Reader&, const RcpFrame& frame) {
      came.push_back(name + NSData(frame.bytes).description());
    };
    handlers.onValue = [&, name](Reader&, const NSData& value) {
      came.push_back(name + value.description());
    };
    held.push_back(Reader::create(simulated.platform(), {.reader = name}, handlers));
  }
  simulated.runLoop().runFor(std::chrono::seconds(30));
  held.clear();
  simulated.runLoop().runFor(std::chrono::seconds(1));
  EXPECT_GT(sent.size(), 400U);
  const std::set<std::string> distinct(sent.begin(), sent.end());
  EXPECT_EQ(distinct.size(), sent.size());
  // What was on its way at the end need not have come.
  EXPECT_GE(came.size() + 4, sent.size());
  for (const std::string& each : came) EXPECT_TRUE(distinct.contains(each)) << each;
}

TEST(SimulatedReaders, TwoRunsSendNothingAlike) {
  std::set<std::string> sent;
  std::size_t count = 0;
  for (const std::uint32_t run : {1U, 2U}) {
    simulated::SimulatedPlatform simulated(options());
    const SimulatedReaders readers(simulated.platform().mainRunLoop, simulated.radio(),
                                   {{"KVR-0417", milliseconds(100)}}, run,
                                   [&](const std::string&, const NSData& bytes) {
                                     if (isAnswer(bytes)) return;
                                     sent.insert(bytes.description());
                                     ++count;
                                   });
    const auto reader = Reader::create(simulated.platform(), {.reader = "KVR-0417"});
    simulated.runLoop().runFor(std::chrono::seconds(20));
  }
  EXPECT_GT(count, 100U);
  EXPECT_EQ(sent.size(), count);
}

}  // namespace
}  // namespace kestrin::gateway
