// Many readers in one process, on one radio.
#include <algorithm>
#include <atomic>
#include <set>
#include <thread>

#include "KestrinBLESDK/recording/RecordedPlatform.h"
#include "reader/ReaderTest.h"

namespace kestrin::test {
namespace {

using enum ReaderPhase;

class ManyReaders : public ReaderTest {
 protected:
  static constexpr std::size_t kMany = 12;
  static std::string nameAt(std::size_t i) { return "KVR-" + std::to_string(1000 + i); }
  void addDevices() {
    for (std::size_t i = 0; i < kMany; ++i) {
      devices_.push_back(simulated_.radio().addReader(nameAt(i), ReaderFamily::standard));
    }
  }
  bool allPlugged() {
    return std::all_of(readers_.begin(), readers_.end(),
                       [](const auto& reader) { return reader->phase() == pluggedIn; });
  }
  bool waitForAll(Time limit = seconds(60)) {
    return loop().runUntil(now() + limit, [&] { return allPlugged(); });
  }

  std::vector<std::shared_ptr<simulated::VirtualPeripheral>> devices_;
  std::vector<std::unique_ptr<Reader>> readers_;
};

TEST_F(ManyReaders, ArePluggedInTogetherAndEachAnswersItsOwn) {
  addDevices();
  for (std::size_t i = 0; i < kMany; ++i) {
    readers_.push_back(Reader::create(simulated_.platform(), {.reader = nameAt(i)}));
  }
  ASSERT_TRUE(waitForAll());
  EXPECT_LT(now(), seconds(5)) << "side by side";
  std::vector<std::optional<NSData>> answers(kMany);
  for (std::size_t i = 0; i < kMany; ++i) {
    EXPECT_EQ(readers_[i]->name(), nameAt(i));
    readers_[i]->exchange(frameOf(0x00, 0x22, {static_cast<std::uint8_t>(i)}), seconds(1),
                          [&answers, i](const auto& answer, const auto&) {
                            if (answer) answers[i].emplace(answer->bytes);
                          });
  }
  runFor(seconds(1));
  for (std::size_t i = 0; i < kMany; ++i) {
    EXPECT_EQ(answers[i], frameOf(0x01, 0x22, {static_cast<std::uint8_t>(i)}));
  }
}

TEST_F(ManyReaders, OfOneNameTakeADeviceEach) {
  addDevices();
  for (std::size_t i = 0; i < kMany; ++i) {
    readers_.push_back(Reader::create(simulated_.platform(),
                                      {.reader = "KVR-10", .ambiguity = Ambiguity::takeFirst}));
  }
  ASSERT_TRUE(waitForAll());
  std::set<std::string> identifiers;
  for (const auto& reader : readers_) identifiers.insert(reader->identifier());
  EXPECT_EQ(identifiers.size(), kMany);
}

TEST_F(ManyReaders, ComeBackOneByOneWithoutTheOthersNoticing) {
  addDevices();
  std::vector<Heard> heard(kMany);
  for (std::size_t i = 0; i < kMany; ++i) {
    readers_.push_back(
        Reader::create(simulated_.platform(), {.reader = nameAt(i)}, heard[i].handlers()));
  }
  ASSERT_TRUE(waitForAll());
  for (std::size_t i = 0; i < kMany; i += 2) {
    for (auto& each : heard) each.phases.clear();
    devices_[i]->simulateLinkLoss();
    ASSERT_TRUE(runUntil(*readers_[i], lost));
    ASSERT_TRUE(waitForAll());
    for (std::size_t other = 0; other < kMany; ++other) {
      EXPECT_EQ(heard[other].phases.empty(), other != i);
    }
  }
}

TEST_F(ManyReaders, SearchWhileOthersAreWorked) {
  const auto first = plugged();
  const auto second = Reader::create(simulated_.platform(), {.reader = "KVR-0099"});
  runFor(seconds(5));
  EXPECT_EQ(first->phase(), pluggedIn);
  EXPECT_EQ(second->phase(), searching);
  // One whose scan ends does not end the other's.
  auto third = Reader::create(simulated_.platform(), {.reader = "KVR-0098"});
  runFor(seconds(1));
  third.reset();
  simulated_.radio().addReader("KVR-0099", ReaderFamily::standard);
  EXPECT_TRUE(runUntil(*second, pluggedIn));
  std::optional<NSData> answered;
  first->exchange(command_, seconds(1), [&](const auto& answer, const auto&) {
    if (answer) answered.emplace(answer->bytes);
  });
  runFor(seconds(1));
  EXPECT_EQ(answered, answer_);
}

TEST_F(ManyReaders, ThatHaveSeenAnothersDeviceDoNotEndItsLink) {
  std::vector<std::unique_ptr<Reader>> others;
  others.reserve(4);
  for (int i = 0; i < 4; ++i) {
    others.push_back(Reader::create(simulated_.platform(), {.reader = "KVR-0099"}));
  }
  runFor(seconds(1));
  for (const auto& other : others) ASSERT_EQ(other->seen().size(), 1U);
  const auto reader = plugged();
  heard_.phases.clear();
  others[0].reset();
  others[1]->close();
  others[2]->leave();
  runFor(seconds(5));
  others[2]->comeBack();
  power(true);
  runFor(seconds(5));
  EXPECT_EQ(others[2]->phase(), searching);
  EXPECT_TRUE(heard_.phases.empty());
  EXPECT_TRUE(device_->connected());
}

TEST_F(ManyReaders, AskForOneDeviceAndTheSecondGetsItWhenTheFirstGivesItUp) {
  auto first = plugged();
  const auto second =
      Reader::create(simulated_.platform(), {.reader = "KVR-0417", .findLimit = seconds(5)});
  heard_.troubles.clear();
  runFor(seconds(3));
  EXPECT_EQ(second->phase(), searching);
  EXPECT_TRUE(second->candidates().empty());
  EXPECT_FALSE(second->choose(device_->identifier()));
  first.reset();
  EXPECT_TRUE(runUntil(*second, pluggedIn));
}

TEST_F(ManyReaders, GetADeviceOnceTheLinkOfAClosedReaderIsDown) {
  const auto first = plugged();
  const auto second = Reader::create(simulated_.platform(), {.reader = "KVR-0417"});
  runFor(seconds(3));
  EXPECT_EQ(second->phase(), searching);
  first->close();
  EXPECT_TRUE(runUntil(*second, pluggedIn));
  EXPECT_FALSE(first->hasLink());
}

TEST_F(ManyReaders, AreToldOfADeviceThatIsHeld) {
  const auto first = plugged();
  Heard heard;
  const auto second =
      Reader::create(simulated_.platform(),
                     {.reader = device_->identifier(), .findLimit = seconds(5)}, heard.handlers());
  runFor(seconds(2));
  ASSERT_EQ(heard.troubles.size(), 1U);
  EXPECT_EQ(heard.trouble(), ReaderError::held);
  EXPECT_EQ(heard.troubles.back().text,
            "'" + device_->identifier() +
                "' is held by another Reader of this program; drop that one first");
  runFor(seconds(5));
  EXPECT_EQ(heard.trouble(), ReaderError::notFound);
  EXPECT_EQ(heard.troubles.back().text,
            "no reader whose name contains '" + device_->identifier() +
                "' was found within 5 s; no reader at all is in range; '" + device_->identifier() +
                "' is held by another Reader of this program; drop that one first");
}

/// One reader that has seen the device before another took it, and is not told of it again.
class SecondReader : public ManyReaders {
 protected:
  void SetUp() override {
    second_ = Reader::create(simulated_.platform(), {.reader = "KVR-04", .findLimit = seconds(5)},
                             secondHeard_.handlers());
    // Both see it, and the one that need not wait for others takes it.
    first_ = plugged({.reader = device_->identifier()});
  }
  Heard secondHeard_;
  std::unique_ptr<Reader> second_;
  std::unique_ptr<Reader> first_;
};

TEST_F(SecondReader, IsToldWhichOfThoseInRangeAreHeld) {
  runFor(seconds(5));
  ASSERT_FALSE(secondHeard_.troubles.empty());
  EXPECT_EQ(
      secondHeard_.troubles.back().text,
      "no reader whose name contains 'KVR-04' was found within 5 s; in range: 'KVR-0417' (held "
      "by this program already)");
}

TEST_F(SecondReader, TakesWhatItHasSeenOnceTheFirstGivesItUp) {
  first_.reset();
  EXPECT_TRUE(runUntil(*second_, pluggedIn));
  EXPECT_EQ(secondHeard_.seen, 1U);
}

TEST_F(SecondReader, TakesWhatWasGivenUpWhileItWasAwayWhenItComesBack) {
  second_->leave();
  runFor(seconds(1));
  first_.reset();
  runFor(seconds(1));
  EXPECT_EQ(second_->phase(), away);
  second_->comeBack();
  EXPECT_TRUE(runUntil(*second_, pluggedIn));
}

TEST_F(SecondReader, TakesWhatWasGivenUpWhileTheRadioWasOffWhenItIsOn) {
  power(false);
  runFor(seconds(1));
  first_.reset();
  power(true);
  EXPECT_TRUE(runUntil(*second_, pluggedIn));
}

TEST_F(SecondReader, IsNotRefusedWhereAnyReaderWillDo) {
  Heard heard;
  const auto third = Reader::create(simulated_.platform(), {}, heard.handlers());
  runFor(seconds(3));
  EXPECT_TRUE(heard.troubles.empty());
  EXPECT_EQ(third->phase(), searching);
}

TEST_F(ManyReaders, TakeNoWeakerMatchWhereTheWholeNameIsHeld) {
  simulated_.radio().addReader("KVR-0417-B", ReaderFamily::standard);
  const auto second = Reader::create(simulated_.platform(), {.reader = "KVR-0417"});
  const auto first = plugged({.reader = device_->identifier()});
  runFor(seconds(5));
  EXPECT_EQ(second->phase(), searching);
}

TEST_F(ManyReaders, OfAnotherRadioHoldTheirOwn) {
  simulated::SimulatedPlatform other(options());
  other.radio().addReader("KVR-0417", ReaderFamily::standard);
  const auto first = plugged();
  Heard heard;
  const auto second = Reader::create(other.platform(), {.reader = "KVR-0417"}, heard.handlers());
  other.runLoop().runFor(seconds(10));
  EXPECT_EQ(second->phase(), pluggedIn);
  EXPECT_TRUE(heard.troubles.empty());
}

TEST_F(ManyReaders, ThatRecordHoldTheSameDevicesAsThoseThatDoNot) {
  class Deaf final : public RecordingSink {
   public:
    void take(const RecordedEvent& /*event*/) noexcept override {}
  };
  const auto once = recordedPlatform(simulated_.platform(), std::make_shared<Deaf>());
  const auto twice = recordedPlatform(once.platform, std::make_shared<Deaf>());
  const auto first = plugged();
  Heard heard;
  const auto second = Reader::create(twice.platform, {.reader = "KVR-0417"}, heard.handlers());
  runFor(seconds(5));
  EXPECT_EQ(second->phase(), searching);
  EXPECT_EQ(heard.trouble(), ReaderError::held);
  EXPECT_EQ(&second->radio(), &first->radio()) << "and watch the same radio";
}

TEST_F(ManyReaders, OnSeveralThreadsGiveDevicesUpToEachOther) {
  // Each platform belongs to a thread; what a claim's end starts on the others is theirs alone.
  std::vector<std::thread> threads;
  threads.reserve(4);
  std::atomic<int> plugged = 0;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&plugged] {
      simulated::SimulatedPlatform own(options());
      own.radio().addReader("KVR-0417", ReaderFamily::standard);
      for (int round = 0; round < 20; ++round) {
        const auto reader = Reader::create(own.platform(), {.reader = "KVR-0417"});
        own.runLoop().runFor(seconds(5));
        if (reader->phase() == pluggedIn) ++plugged;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(plugged, 80);
}

TEST_F(ManyReaders, AllComeBackFromARadioThatWasOff) {
  addDevices();
  for (std::size_t i = 0; i < kMany; ++i) {
    readers_.push_back(Reader::create(simulated_.platform(), {.reader = nameAt(i)}));
  }
  ASSERT_TRUE(waitForAll());
  power(false);
  runFor(seconds(3));
  for (const auto& reader : readers_) EXPECT_EQ(reader->phase(), radioOff);
  power(true);
  EXPECT_TRUE(waitForAll());
}

}  // namespace
}  // namespace kestrin::test
