// A reader that is dropped, at every moment and from inside everything that it calls.
#include "reader/ReaderTest.h"

namespace kestrin::test {
namespace {

using enum ReaderPhase;

class Lifetime : public ReaderTest {
 protected:
  /// A reader with a second owner, who drops it from inside a handler.
  struct Owned {
    std::unique_ptr<Reader> reader;
    std::size_t calls = 0;
    std::size_t callsAfter = 0;
    void drop() {
      if (!reader) ++callsAfter;
      ++calls;
      reader.reset();
    }
  };
  void expectDroppedInside(Owned& owned) {
    runFor(seconds(10));
    EXPECT_EQ(owned.calls, 1U);
    EXPECT_EQ(owned.callsAfter, 0U);
    EXPECT_EQ(owned.reader, nullptr);
    EXPECT_FALSE(device_->connected());
  }
};

TEST_F(Lifetime, ClosesTheLinkWhenItEndsAndCallsNobodyAgain) {
  auto reader = plugged();
  reader->send(frameOf(0x00, 0x22, std::vector<std::uint8_t>(200)),
               [](const auto&) { ADD_FAILURE() << "called"; });
  reader->exchange(command_, seconds(1), [](const auto&, const auto&) { ADD_FAILURE(); });
  reader->leave();
  const Heard before = heard_;
  reader.reset();
  runFor(seconds(20));
  EXPECT_FALSE(device_->connected());
  EXPECT_EQ(heard_.phases, before.phases);
  EXPECT_EQ(heard_.frames, before.frames);
}

TEST_F(Lifetime, ClosesItsManagerAtItsEndUnlessThatIsClosedAlready) {
  const auto requests = std::make_shared<Requests>();
  const auto recorded = recordedPlatform(simulated_.platform(), requests);
  auto reader = Reader::create(recorded.platform, {});
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  requests->words.clear();
  reader.reset();
  EXPECT_EQ(requests->words, "close cancel stopScan ");

  device_->simulateConnectionNeverCompleting();
  reader = Reader::create(recorded.platform, {});
  ASSERT_TRUE(runUntil(*reader, connecting));
  power(false);
  ASSERT_TRUE(runUntil(*reader, radioOff));
  requests->words.clear();
  reader.reset();
  EXPECT_EQ(requests->words, "close cancel stopScan ") << "of an attempt that waits for the radio";

  power(true);
  reader = Reader::create(recorded.platform, {});
  ASSERT_TRUE(runUntil(*reader, connecting));
  reader->close();
  runFor(seconds(1));
  requests->words.clear();
  reader->close();
  reader.reset();
  EXPECT_EQ(requests->words, "");
}

TEST_F(Lifetime, EndsAtEveryMomentOfALinkUpWithoutACall) {
  for (Time moment{}; moment < seconds(3); moment += milliseconds(7)) {
    heard_ = {};
    auto reader = create();
    runFor(moment);
    const auto phases = heard_.phases;
    const auto frames = heard_.frames;
    reader.reset();
    runFor(seconds(5));
    ASSERT_EQ(heard_.phases, phases) << moment.count();
    ASSERT_EQ(heard_.frames, frames) << moment.count();
    ASSERT_FALSE(device_->connected()) << moment.count();
  }
}

TEST_F(Lifetime, EndsFromInsideEachPhase) {
  for (const ReaderPhase last : {connecting, linkingUp, pluggedIn, lost, radioOff, away}) {
    SCOPED_TRACE(nameOf(last));
    Owned owned;
    owned.reader =
        Reader::create(simulated_.platform(), {}, {.onPhase = [&](Reader&, ReaderPhase phase) {
                         if (phase == last || owned.calls > 0) owned.drop();
                       }});
    runFor(seconds(3));
    if (owned.reader) {
      if (last == lost) device_->simulateLinkLoss();
      if (last == radioOff) power(false);
      if (last == away) owned.reader->leave();
    }
    expectDroppedInside(owned);
    power(true);
    runFor(seconds(1));
  }
}

TEST_F(Lifetime, EndsFromInsideThePhaseThatIsTheLast) {
  Owned owned;
  owned.reader = Reader::create(simulated_.platform(), {.reconnect = false},
                                {.onPhase = [&](Reader&, ReaderPhase phase) {
                                  if (phase == closed || owned.calls > 0) owned.drop();
                                }});
  ASSERT_TRUE(runUntil(*owned.reader, pluggedIn));
  device_->simulateLinkLoss();
  expectDroppedInside(owned);
}

TEST_F(Lifetime, EndsFromInsideAReturnToItsSearch) {
  Owned owned;
  owned.reader = Reader::create(simulated_.platform(), {.reader = "none"},
                                {.onPhase = [&](Reader&, ReaderPhase phase) {
                                  if (phase == searching || owned.calls > 0) owned.drop();
                                }});
  runFor(seconds(1));
  owned.reader->leave();
  ASSERT_TRUE(runUntil(*owned.reader, away));
  owned.reader->comeBack();
  expectDroppedInside(owned);
}

TEST_F(Lifetime, EndsFromInsideAFrame) {
  Owned owned;
  owned.reader = Reader::create(simulated_.platform(), {},
                                {.onFrame = [&](Reader&, const RcpFrame&) { owned.drop(); }});
  expectDroppedInside(owned);
}

TEST_F(Lifetime, EndsFromInsideAValue) {
  simulated_.radio().addReader("KVR-Q62T 0012", ReaderFamily::kvrQ62T);
  Owned owned;
  owned.reader = Reader::create(simulated_.platform(), {.reader = "Q62T"},
                                {.onPhase =
                                     [this](Reader& reader, ReaderPhase phase) {
                                       if (phase == pluggedIn) reader.send(command_);
                                     },
                                 .onValue = [&](Reader&, const NSData&) { owned.drop(); }});
  expectDroppedInside(owned);
}

TEST_F(Lifetime, EndsFromInsideTroubles) {
  const ReaderOptions kOptions[] = {
      {.reader = "none", .findLimit = seconds(1)},
      {.reader = "none", .findLimit = seconds(1), .reconnect = false},
      {.plugInLimit = seconds(1)},
      {.plugInLimit = seconds(1), .reconnect = false},
  };
  for (const ReaderOptions& options : kOptions) {
    Owned owned;
    owned.reader = Reader::create(simulated_.platform(), options,
                                  {.onTrouble = [&](Reader&, const NSError&) { owned.drop(); }});
    expectDroppedInside(owned);
  }
}

TEST_F(Lifetime, EndsFromInsideTheTroubleOfTheRadio) {
  power(false);
  Owned owned;
  owned.reader = Reader::create(simulated_.platform(), {},
                                {.onTrouble = [&](Reader&, const NSError&) { owned.drop(); }});
  expectDroppedInside(owned);
}

TEST_F(Lifetime, EndsFromInsideTheTroubleOfALossThatIsTheLast) {
  Owned owned;
  owned.reader = Reader::create(simulated_.platform(), {.reconnect = false},
                                {.onTrouble = [&](Reader&, const NSError&) { owned.drop(); }});
  runFor(seconds(5));
  device_->simulateLinkLoss();
  expectDroppedInside(owned);
}

TEST_F(Lifetime, EndsFromInsideASighting) {
  Owned owned;
  owned.reader = Reader::create(simulated_.platform(), {.ambiguity = Ambiguity::takeFirst},
                                {.onSeen = [&](Reader&) { owned.drop(); }});
  expectDroppedInside(owned);
}

TEST_F(Lifetime, EndsFromInsideTheEndOfASendOrAnExchange) {
  for (const bool exchanged : {false, true}) {
    Owned owned;
    owned.reader = Reader::create(simulated_.platform(), {});
    runFor(seconds(5));
    ASSERT_EQ(owned.reader->phase(), pluggedIn);
    if (exchanged) {
      owned.reader->exchange(command_, seconds(1), [&](const auto&, const auto&) { owned.drop(); });
      owned.reader->exchange(command_, seconds(1), [&](const auto&, const auto&) { owned.drop(); });
    } else {
      owned.reader->send(command_, [&](const auto&) { owned.drop(); });
      owned.reader->send(command_, [&](const auto&) { owned.drop(); });
    }
    expectDroppedInside(owned);
  }
}

TEST_F(Lifetime, CallsNoDoneOfAnythingOnceItHasEnded) {
  auto reader = plugged();
  const auto called = [] { ADD_FAILURE() << "called"; };
  reader->leave(called);
  reader->close(called);
  reader.reset();
  reader = create({.reader = "none"});
  reader->close(called);  // There is no link: it would be called in the next turn.
  reader.reset();
  runFor(seconds(10));
}

TEST_F(Lifetime, EndsFromInsideTheDoneOfItsClose) {
  Owned owned;
  owned.reader = Reader::create(simulated_.platform(), {});
  runFor(seconds(5));
  owned.reader->close([&] { owned.drop(); });
  owned.reader->close([&] { owned.drop(); });
  expectDroppedInside(owned);
}

TEST_F(Lifetime, EndsFromInsideEveryLineOfTheLog) {
  for (const char* at : {" CBManager is powered on", "DiscoverPeripheral", "BLE Connected",
                         "Found RX", "[TX BLE]", "[RX BLE]", "BLE Disconnected"}) {
    SCOPED_TRACE(at);
    const auto log = std::make_shared<CallingLog>(at);
    Platform platform = simulated_.platform();
    platform.log = log;
    Heard heard;
    auto reader = Reader::create(platform, {}, heard.handlers());
    log->call = [&] { reader.reset(); };
    runFor(seconds(3));
    if (reader) {
      reader->send(frameOf(0x00, 0x22, std::vector<std::uint8_t>(50)),
                   [](const auto&) { ADD_FAILURE() << "called"; });
    }
    if (reader) device_->simulateLinkLoss();
    runFor(seconds(5));
    EXPECT_FALSE(log->call) << "there was no such line";
    EXPECT_EQ(reader, nullptr);
    EXPECT_FALSE(device_->connected());
  }
}

TEST_F(Lifetime, EndsFromInsideTheLineAboutEachSlice) {
  for (const int slice : {0, 1, 2}) {
    const auto log = std::make_shared<CallingLog>("[TX BLE]", slice);
    Platform platform = simulated_.platform();
    platform.log = log;
    auto reader = Reader::create(platform, {});
    ASSERT_TRUE(runUntil(*reader, pluggedIn));
    log->call = [&] { reader.reset(); };
    reader->send(frameOf(0x00, 0x22, std::vector<std::uint8_t>(40)),
                 [](const auto&) { ADD_FAILURE() << "called"; });
    runFor(seconds(5));
    EXPECT_FALSE(log->call) << "there was no such line";
    EXPECT_EQ(reader, nullptr);
    EXPECT_FALSE(device_->connected());
  }
}

TEST_F(Lifetime, OutlivesItsPlatformsRunLoopWithoutALinkToo) {
  auto platform = std::make_unique<simulated::SimulatedPlatform>(options());
  const auto reader = Reader::create(platform->platform(), {});
  platform->runLoop().runFor(seconds(1));
  platform.reset();
  reader->close([] { ADD_FAILURE(); });
  EXPECT_EQ(reader->phase(), closed);
}

TEST_F(Lifetime, OutlivesItsPlatformsRunLoop) {
  auto platform = std::make_unique<simulated::SimulatedPlatform>(options());
  platform->radio().addReader("KVR-0417", ReaderFamily::standard);
  const auto reader = Reader::create(platform->platform(), {});
  platform->runLoop().runFor(seconds(5));
  ASSERT_EQ(reader->phase(), pluggedIn);
  platform.reset();
  reader->send(command_, [](const auto&) { ADD_FAILURE(); });
  reader->leave();
  reader->comeBack();
  reader->close([] { ADD_FAILURE(); });
  EXPECT_EQ(reader->phase(), closed);
}

}  // namespace
}  // namespace kestrin::test
