// How an accepted frame reaches the receiver, and what a receiver may do meanwhile.
#include <gtest/gtest.h>

#include <thread>

#include "AssemblerTest.h"

namespace kestrin::test {
namespace {

/// Writes each request into the log; `beforeWork` runs inside each submission, before the work.
class RecordingDispatch final : public Dispatch {
 public:
  explicit RecordingDispatch(std::shared_ptr<RecordingLog> log) : log_(std::move(log)) {}
  [[nodiscard]] dispatch_queue_t dispatch_get_global_queue(long priority,
                                                           unsigned long flags) const override {
    log_->write("queue " + std::to_string(priority) + " flags " + std::to_string(flags));
    return Dispatch::dispatch_get_global_queue(priority, flags);
  }
  void dispatch_sync(const dispatch_queue_t& queue, WorkReference work) const override {
    log_->write("submit to " + std::to_string(queue.priority));
    if (beforeWork) beforeWork();
    Dispatch::dispatch_sync(queue, work);
    log_->write("done");
  }
  std::function<void()> beforeWork;

 private:
  const std::shared_ptr<RecordingLog> log_;
};

/// Runs each submission on a thread of its own, as a platform with real queues would.
class ThreadedDispatch final : public Dispatch {
 public:
  void dispatch_sync(const dispatch_queue_t& queue, WorkReference work) const override {
    std::thread([&] { Dispatch::dispatch_sync(queue, work); }).join();
  }
};

/// Hears plug reports only.
class PlugListener final : public RcpReceiver {
 public:
  void plugChangedStatus(bool plugged) noexcept override { reports.push_back(plugged); }
  std::vector<bool> reports;
};

/// Decides at run time, and counts how often it is asked.
class WaveringListener final : public RcpReceiver {
 public:
  [[nodiscard]] bool respondsToSelector(Selector selector) const noexcept override {
    asked.push_back(selector);
    return willing;
  }
  void dispatchRcpFrmReader(const std::optional<NSData>&) noexcept override { ++frames; }
  mutable std::vector<Selector> asked;
  bool willing = false;
  int frames = 0;
};

class Delivery : public AssemblerTest {
 protected:
  void swapManager(std::shared_ptr<Dispatch> dispatch) {
    Platform platform;
    platform.log = log;
    platform.dispatch = std::move(dispatch);
    manager = KestrinBleMgr::init(platform);
    manager->setRcpReceiverDelegate(listener);
  }
  const std::string heardInLog = kHeardA[0];
};

TEST_F(Delivery, HandsOverTheWholeFrameAsItsOwnCopy) {
  struct Keeper final : RcpReceiver {
    void dispatchRcpFrmReader(const std::optional<NSData>& frame) noexcept override {
      kept = frame;
    }
    std::optional<NSData> kept;
  };
  const auto keeper = std::make_shared<Keeper>();
  manager->setRcpReceiverDelegate(keeper);
  arrive(joined({{0x00}, kFrameA}));
  arrive(Bytes(2000, 0xBB));
  manager.reset();
  ASSERT_TRUE(keeper->kept.has_value());
  EXPECT_EQ(*keeper->kept, NSData(kFrameA));
}

TEST_F(Delivery, SubmitsTwiceToTheHighPriorityQueueInsideEachOther) {
  swapManager(std::make_shared<RecordingDispatch>(log));
  EXPECT_EQ(arrive(kFrameA),
            (Events{kHeardA[0], "queue 2 flags 0", "submit to 2", "queue 2 flags 0", "submit to 2",
                    kHeardA[1], "done", "done"}));
}

TEST_F(Delivery, SubmitsEachFrameBeforeTheNextByteIsLookedAt) {
  swapManager(std::make_shared<RecordingDispatch>(log));
  const Events events = arrive(joined({kFrameA, {0xBB, 0x00}, kFrameB}));
  ASSERT_EQ(events.size(), 17U);
  EXPECT_EQ(events[7], "done");
  EXPECT_EQ(events[8], kMessageError);
  EXPECT_EQ(events[9], kHeardB[0]);
}

TEST_F(Delivery, SubmitsAlsoWhenNobodyReceives) {
  swapManager(std::make_shared<RecordingDispatch>(log));
  manager->setRcpReceiverDelegate(nullptr);
  EXPECT_EQ(arrive(kFrameA), (Events{kHeardA[0], "queue 2 flags 0", "submit to 2",
                                     "queue 2 flags 0", "submit to 2", "done", "done"}));
}

TEST_F(Delivery, ReadsTheReceiverInsideTheSecondSubmission) {
  const auto dispatch = std::make_shared<RecordingDispatch>(log);
  swapManager(dispatch);
  const auto later = std::make_shared<FrameListener>(log, "LATER");
  int submissions = 0;
  dispatch->beforeWork = [&] {
    if (++submissions == 2) manager->setRcpReceiverDelegate(later);
  };
  const Events events = arrive(kFrameA);
  EXPECT_EQ(submissions, 2);
  EXPECT_EQ(std::ranges::count(events, "LATER <bb010300 01b17e20 37>"), 1);
  EXPECT_EQ(std::ranges::count(events, kHeardA[1]), 0);
}

TEST_F(Delivery, AsksTheReceiverInsideTheSecondSubmission) {
  const auto dispatch = std::make_shared<RecordingDispatch>(log);
  swapManager(dispatch);
  const auto wavering = std::make_shared<WaveringListener>();
  manager->setRcpReceiverDelegate(wavering);
  int submissions = 0;
  dispatch->beforeWork = [&] { wavering->willing = ++submissions == 2; };
  arrive(kFrameA);
  EXPECT_EQ(wavering->frames, 1);
}

TEST_F(Delivery, GivesTheFrameToTheReceiverThatIsSetWhenTheWorkRuns) {
  const auto dispatch = std::make_shared<RecordingDispatch>(log);
  swapManager(dispatch);
  const auto later = std::make_shared<FrameListener>(log, "LATER");
  dispatch->beforeWork = [&] { manager->setRcpReceiverDelegate(later); };
  const Events events = arrive(kFrameA);
  EXPECT_EQ(std::ranges::count(events, "LATER <bb010300 01b17e20 37>"), 1);
  EXPECT_EQ(std::ranges::count(events, kHeardA[1]), 0);
}

TEST_F(Delivery, WorksOnAQueueWithThreadsOfItsOwn) {
  swapManager(std::make_shared<ThreadedDispatch>());
  std::thread::id ranOn;
  listener->inside = [&] { ranOn = std::this_thread::get_id(); };
  EXPECT_EQ(arrive(joined({kFrameA, kFrameB})), heard({kHeardA, kHeardB}));
  EXPECT_NE(ranOn, std::this_thread::get_id());
}

TEST_F(Delivery, WithoutAReceiverLogsAndTrimsAllTheSame) {
  manager->setRcpReceiverDelegate(nullptr);
  EXPECT_EQ(arrive(joined({kFrameA, kFrameB, {0xBB, 0x01}})), (Events{kHeardA[0], kHeardB[0]}));
  EXPECT_EQ(kept(), (Bytes{0xBB, 0x01}));
}

TEST_F(Delivery, ToAReceiverThatIsGoneIsSkipped) {
  auto brief = std::make_shared<FrameListener>(log, "GONE");
  manager->setRcpReceiverDelegate(brief);
  brief.reset();
  EXPECT_EQ(manager->rcpReceiverDelegate(), nullptr);
  EXPECT_EQ(arrive(kFrameA), Events{kHeardA[0]});
}

TEST_F(Delivery, ToAReceiverWithoutTheCallbackIsSkipped) {
  const auto plugs = std::make_shared<PlugListener>();
  manager->setRcpReceiverDelegate(plugs);
  EXPECT_EQ(arrive(kFrameA), Events{kHeardA[0]});
  EXPECT_EQ(kept(), Bytes{});
  EXPECT_TRUE(plugs->reports.empty());
}

TEST_F(Delivery, AsksTheReceiverOnceBeforeEachFrame) {
  const auto wavering = std::make_shared<WaveringListener>();
  manager->setRcpReceiverDelegate(wavering);
  EXPECT_EQ(arrive(joined({kFrameA, kFrameB})), (Events{kHeardA[0], kHeardB[0]}));
  EXPECT_EQ(wavering->frames, 0);
  wavering->willing = true;
  arrive(kFrameA);
  EXPECT_EQ(wavering->frames, 1);
  EXPECT_EQ(wavering->asked, std::vector<Selector>(3, Selector::dispatchRcpFrmReader));
}

TEST_F(Delivery, GoesOnWhenNobodyReadsTheLog) {
  log->setListening(false);
  EXPECT_EQ(arrive(joined({{0xBB, 0x00}, kFrameA})), Events{kHeardA[1]});
}

TEST_F(Delivery, ParsesBytesReadInsideItWhenTheRunningParseHasEnded) {
  listener->inside = [this] {
    listener->inside = nullptr;
    EXPECT_EQ(manager->readData(NSData(kFrameC)), 0);
    log->write("read");
  };
  EXPECT_EQ(arrive(joined({kFrameA, kFrameB})), heard({kHeardA, {"read"}, kHeardB, kHeardC}));
  EXPECT_EQ(kept(), Bytes{});
}

TEST_F(Delivery, AppendsBytesReadInsideItBehindWhatTheRunningParseKeeps) {
  listener->inside = [this] {
    listener->inside = nullptr;
    manager->readData(NSData(from(kFrameB, 3)));
  };
  EXPECT_EQ(arrive(joined({kFrameA, part(kFrameB, 0, 3)})), heard({kHeardA, kHeardB}));
  EXPECT_EQ(kept(), Bytes{});
}

TEST_F(Delivery, GivesEachArrivalReadInsideItAParseOfItsOwn) {
  listener->inside = [this] {
    listener->inside = nullptr;
    // A frame that a byte follows is kept, so every parse delivers it once more.
    manager->readData(NSData());
    manager->readData(NSData());
  };
  EXPECT_EQ(arrive(joined({kFrameA, {0x00}})), heard({kHeardA, kHeardA, kHeardA}));
}

TEST_F(Delivery, KeepsTheOrderOfArrivalsReadInsideDeliveriesInsideDeliveries) {
  int delivered = 0;
  listener->inside = [&] {
    switch (++delivered) {
      case 1:
        manager->readData(NSData(kFrameB));
        manager->readData(NSData(kFrameC));
        break;
      case 2:
        manager->readData(NSData(kFrameA));
        break;
      default:
        break;
    }
  };
  EXPECT_EQ(arrive(kFrameA), heard({kHeardA, kHeardB, kHeardC, kHeardA}));
}

TEST_F(Delivery, TakesBytesAsUsualAfterSomeWereReadInsideIt) {
  listener->inside = [this] {
    listener->inside = nullptr;
    manager->readData(NSData(kFrameB));
  };
  arrive(kFrameA);
  EXPECT_EQ(arrive(kFrameC), kHeardC);
}

TEST_F(Delivery, SurvivesAReceiverThatDropsTheManager) {
  const std::weak_ptr<KestrinBleMgr> gone = manager;
  listener->inside = [this] { manager.reset(); };
  manager->readData(NSData(joined({kFrameA, kFrameB, {0x00, 0x01}})));
  EXPECT_EQ(log->take(), heard({kHeardA, kHeardB}));
  EXPECT_TRUE(gone.expired());
}

TEST_F(Delivery, ParsesWhatWasReadInsideItAlsoWhenTheManagerIsDroppedThere) {
  listener->inside = [this] {
    if (!manager) return;
    manager->readData(NSData(kFrameB));
    manager.reset();
  };
  manager->readData(NSData(kFrameA));
  EXPECT_EQ(log->take(), heard({kHeardA, kHeardB}));
}

TEST_F(Delivery, SurvivesAReceiverThatDropsItself) {
  auto brief = std::make_shared<FrameListener>(log, "BRIEF");
  brief->inside = [&brief] { brief.reset(); };
  manager->setRcpReceiverDelegate(brief);
  EXPECT_EQ(arrive(joined({kFrameA, kFrameB})),
            (Events{kHeardA[0], "BRIEF <bb010300 01b17e20 37>", kHeardB[0]}));
}

TEST_F(Delivery, GoesToTheReceiverThatWasSetInsideTheOneBefore) {
  const auto later = std::make_shared<FrameListener>(log, "LATER");
  listener->inside = [&] { manager->setRcpReceiverDelegate(later); };
  EXPECT_EQ(arrive(joined({kFrameA, kFrameB})),
            (Events{kHeardA[0], kHeardA[1], kHeardB[0], "LATER <bb021100 007ea7c5>"}));
}

TEST_F(Delivery, StopsWhenTheReceiverIsUnsetInsideIt) {
  listener->inside = [this] { manager->setRcpReceiverDelegate(nullptr); };
  EXPECT_EQ(arrive(joined({kFrameA, kFrameB})), (Events{kHeardA[0], kHeardA[1], kHeardB[0]}));
}

TEST(DeliveryLog, MayDropTheManagerOrReadBytes) {
  struct DroppingLog final : NSLogSink {
    void write(std::string_view line) noexcept override {
      lines.emplace_back(line);
      if (!manager) return;
      manager->readData(NSData(kFrameB));
      manager.reset();
    }
    std::shared_ptr<KestrinBleMgr> manager;
    Events lines;
  };
  const auto log = std::make_shared<DroppingLog>();
  Platform platform;
  platform.log = log;
  log->manager = KestrinBleMgr::init(platform);
  log->manager->readData(NSData(joined({kFrameA, {0xBB, 0x00}})));
  EXPECT_EQ(log->lines, (Events{kHeardA[0], kMessageError, kMessageError, kHeardB[0]}));
}

/// Drops the manager when it hears the line, and looks whether it is still there.
class DroppingSink final : public NSLogSink {
 public:
  DroppingSink(std::string word, std::shared_ptr<KestrinBleMgr>& manager)
      : word_(std::move(word)), manager_(manager) {}
  void write(std::string_view line) noexcept override {
    if (!line.starts_with(word_) || !manager_) return;
    const std::weak_ptr<KestrinBleMgr> alive = manager_;
    manager_.reset();
    wasKept = !alive.expired();
  }
  bool wasKept = false;

 private:
  const std::string word_;
  std::shared_ptr<KestrinBleMgr>& manager_;
};

TEST(DroppedInAParse, IsKeptUntilItsEndWhateverLineTheLogDropsItIn) {
  Bytes wrongMark = kFrameA;
  wrongMark[6] = 0x7F;
  Bytes wrongCrc = kFrameA;
  wrongCrc[8] ^= 1;
  const std::vector<std::pair<std::string, Bytes>> lines = {
      {kMessageError, kGetReaderInfo},
      {kLengthError, {0xBB, 0x01, 0x22, 0x03, 0xFE}},
      {"[ERROR]parseFrmReader:ENDMARK", wrongMark},
      {"[Test]", wrongMark},
      {kCrcError, wrongCrc},
      {"[RX BLE]", kFrameA},
  };
  for (const auto& [line, bytes] : lines) {
    std::shared_ptr<KestrinBleMgr> manager;
    const auto sink = std::make_shared<DroppingSink>(line, manager);
    Platform platform;
    platform.log = sink;
    platform.notificationCenter = std::make_shared<NSNotificationCenter>();
    manager = KestrinBleMgr::init(platform);
    const std::weak_ptr<KestrinBleMgr> alive = manager;
    manager->readData(NSData(bytes));
    EXPECT_EQ(manager, nullptr) << line << " was not heard";
    EXPECT_TRUE(sink->wasKept) << line;
    EXPECT_TRUE(alive.expired()) << line;
  }
}

TEST_F(Delivery, LeavesNobodyWhoKeepsTheManager) {
  EXPECT_EQ(arrive(joined({kFrameA, {0x00}})), kHeardA);
  EXPECT_EQ(manager.use_count(), 1);
  // Also where the parse is not that of an arrival.
  KestrinBleMgrTestPeer::parseRcpFrmReader(*manager);
  EXPECT_EQ(log->take(), kHeardA);
  EXPECT_EQ(manager.use_count(), 1);
}

}  // namespace
}  // namespace kestrin::test
