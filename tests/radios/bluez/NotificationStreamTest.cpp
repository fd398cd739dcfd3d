#include "NotificationStream.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "KestrinBLESDK/platform/NSData.h"
#include "ValueInbox.h"

namespace kestrin::bluez {
namespace {

using namespace std::chrono_literals;

constexpr auto kPatience = 20s;

/// A clock that stands still unless the test moves it on. Who sleeps waits until the test wakes it.
class HeldClock final : public Clock {
 public:
  [[nodiscard]] Time now() const override {
    const std::scoped_lock lock(mutex_);
    return now_;
  }
  void sleepFor(Time duration) override {
    std::unique_lock lock(mutex_);
    now_ += duration;
    slept_.push_back(duration);
    changed_.notify_all();
    changed_.wait_for(lock, kPatience, [this] { return woken_ == slept_.size(); });
  }
  [[nodiscard]] bool passesByItself() const noexcept override { return false; }
  void wait(std::condition_variable& /*wakeUp*/, std::unique_lock<std::mutex>& /*lock*/,
            std::optional<Time> /*deadline*/) override {}

  void pass(Time duration) {
    const std::scoped_lock lock(mutex_);
    now_ += duration;
  }
  bool isSleptBy(std::size_t times) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kPatience, [&] { return slept_.size() == times; });
  }
  void wake() {
    const std::scoped_lock lock(mutex_);
    woken_ = slept_.size();
    changed_.notify_all();
  }
  std::vector<Time> slept() {
    const std::scoped_lock lock(mutex_);
    return slept_;
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  Time now_ = 1s;
  std::vector<Time> slept_;
  std::size_t woken_ = 0;
};

/// The daemon's end of a notification descriptor and a stream on the other.
class NotificationStreamTest : public testing::Test {
 protected:
  void SetUp() override {
    std::array<int, 2> ends{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, ends.data()), 0);
    daemon = ends[0];
    ours = ends[1];
  }
  void TearDown() override {
    stream.reset();
    hangUp();
  }

  void start(std::shared_ptr<Clock> clock = std::make_shared<MonotonicClock>()) {
    stream =
        NotificationStream::start(ours,
                                  {.arrived =
                                       [this](std::span<const NotificationStream::Value> arrived) {
                                         const std::scoped_lock lock(mutex);
                                         arrivals.push_back(arrived.size());
                                         for (const auto& value : arrived)
                                           values.emplace_back(value);
                                         changed.notify_all();
                                       },
                                   .hungUp = [this] { end.set_value(); }},
                                  std::move(clock));
    ASSERT_NE(stream, nullptr);
  }
  void hangUp() {
    if (daemon >= 0) ::close(daemon);
    daemon = -1;
  }
  bool hearsTheEnd() { return ended.wait_for(kPatience) == std::future_status::ready; }
  /// Sends as the daemon does, which drops what does not fit; here that fails the test.
  void send(const NSData& value) const {
    pollfd room{.fd = daemon, .events = POLLOUT, .revents = 0};
    ASSERT_EQ(::poll(&room, 1, 20000), 1) << "nobody drains the descriptor";
    ASSERT_EQ(::send(daemon, value.bytes(), value.length(), MSG_NOSIGNAL),
              static_cast<ssize_t>(value.length()));
  }
  void sendMany(int count) const {
    for (int number = 0; number < count; ++number) send(NSData{static_cast<std::uint8_t>(number)});
  }
  /// Until values have arrived so often; how many each time.
  std::vector<std::size_t> arrivalsOnce(std::size_t times) {
    std::unique_lock lock(mutex);
    changed.wait_for(lock, kPatience, [&] { return arrivals.size() >= times; });
    return arrivals;
  }
  std::vector<NSData> received() {
    const std::scoped_lock lock(mutex);
    return values;
  }

  int daemon = -1;
  int ours = -1;
  std::mutex mutex;
  std::vector<NSData> values;
  std::vector<std::size_t> arrivals;  // How many values came together.
  std::condition_variable changed;
  std::promise<void> end;
  std::future<void> ended = end.get_future();
  std::unique_ptr<NotificationStream> stream;
};

NSData numbered(std::size_t length, std::uint8_t first) {
  return NSData(std::vector<std::uint8_t>(length, first));
}

TEST_F(NotificationStreamTest, ValuesOfEveryLengthKeepTheirOrderAndBoundaries) {
  start();
  std::vector<NSData> sent;
  for (std::size_t length = 0; length <= 512; length += 8) {
    sent.push_back(numbered(length, static_cast<std::uint8_t>(length / 8)));
    send(sent.back());
  }
  hangUp();
  ASSERT_TRUE(hearsTheEnd());
  EXPECT_EQ(received(), sent);
}

TEST_F(NotificationStreamTest, AnEmptyValueIsNoEnd) {
  start();
  const std::vector<NSData> sent{NSData(), NSData(), NSData{1}, NSData()};
  for (const auto& value : sent) send(value);
  hangUp();
  ASSERT_TRUE(hearsTheEnd());
  EXPECT_EQ(received(), sent);
}

TEST_F(NotificationStreamTest, WhatCameBeforeTheStreamBeganIsDelivered) {
  send(NSData{7});
  send(NSData());
  send(NSData{8});
  hangUp();
  start();
  ASSERT_TRUE(hearsTheEnd());
  EXPECT_EQ(received(), std::vector<NSData>({NSData{7}, NSData(), NSData{8}}));
}

TEST_F(NotificationStreamTest, ValuesThatWaitTogetherArriveTogether) {
  const std::vector<NSData> sent{NSData{1}, NSData(), numbered(512, 3), NSData{4}};
  for (const auto& value : sent) send(value);
  hangUp();
  start();
  ASSERT_TRUE(hearsTheEnd());
  EXPECT_EQ(received(), sent);
  EXPECT_EQ(arrivals, std::vector<std::size_t>{4});
}

TEST_F(NotificationStreamTest, StoppingDeliversWhatIsThereAndIsNoHangUp) {
  start();
  for (std::uint8_t number = 0; number < 100; ++number) send(NSData{number});
  stream->stop();
  const auto all = received();
  ASSERT_EQ(all.size(), 100U);
  EXPECT_EQ(all.back(), NSData{99});
  EXPECT_EQ(ended.wait_for(0s), std::future_status::timeout);
}

TEST_F(NotificationStreamTest, TheDaemonHearsTheEndOfAStream) {
  start();
  stream.reset();
  pollfd polled{.fd = daemon, .events = 0, .revents = 0};
  ASSERT_EQ(::poll(&polled, 1, 20000), 1);
  EXPECT_TRUE(polled.revents & POLLHUP);
}

TEST_F(NotificationStreamTest, ADescriptorThatIsNoSocketGivesNone) {
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe(pipe.data()), 0);
  EXPECT_EQ(NotificationStream::start(pipe[0], {}), nullptr);
  EXPECT_NE(::close(pipe[0]), 0) << "the descriptor was left open";
  ::close(pipe[1]);
  ::close(ours);
}

using Arrivals = std::vector<std::size_t>;

TEST_F(NotificationStreamTest, AValueOnItsOwnIsHandedOverAtOnce) {
  const auto clock = std::make_shared<HeldClock>();
  start(clock);
  for (std::size_t number = 1; number <= 3; ++number) {
    clock->pass(1ms);
    send(NSData{1});
    EXPECT_EQ(arrivalsOnce(number), Arrivals(number, 1));
  }
  hangUp();
  ASSERT_TRUE(hearsTheEnd());
  EXPECT_TRUE(clock->slept().empty());
}

TEST_F(NotificationStreamTest, AGroupOfValuesAtATimeIsHandedOverAtOnce) {
  const auto clock = std::make_shared<HeldClock>();
  sendMany(5);
  start(clock);
  EXPECT_EQ(arrivalsOnce(1), Arrivals({5}));
  hangUp();
  ASSERT_TRUE(hearsTheEnd());
  EXPECT_TRUE(clock->slept().empty());
}

TEST_F(NotificationStreamTest, ValuesThatComeWithinAMillisecondGatherForOne) {
  const auto clock = std::make_shared<HeldClock>();
  start(clock);
  send(NSData{1});
  ASSERT_EQ(arrivalsOnce(1), Arrivals({1}));
  clock->pass(999us);
  send(NSData{2});
  ASSERT_EQ(arrivalsOnce(2), Arrivals({1, 1}));
  ASSERT_TRUE(clock->isSleptBy(1));
  sendMany(5);
  clock->wake();
  EXPECT_EQ(arrivalsOnce(3), Arrivals({1, 1, 5}));
  ASSERT_TRUE(clock->isSleptBy(2)) << "they still come";
  sendMany(1);
  clock->wake();
  EXPECT_EQ(arrivalsOnce(4), Arrivals({1, 1, 5, 1}));
  hangUp();
  ASSERT_TRUE(hearsTheEnd());
  EXPECT_EQ(clock->slept(), std::vector<Time>(2, 1ms)) << "one alone is not worth a wait";
}

TEST_F(NotificationStreamTest, GroupsThatComeFarApartDoNotGather) {
  const auto clock = std::make_shared<HeldClock>();
  start(clock);
  send(NSData{1});
  ASSERT_EQ(arrivalsOnce(1), Arrivals({1}));
  send(NSData{2});
  ASSERT_TRUE(clock->isSleptBy(1));
  sendMany(2);
  clock->pass(1ms);
  clock->wake();
  EXPECT_EQ(arrivalsOnce(3), Arrivals({1, 1, 2}));
  hangUp();
  ASSERT_TRUE(hearsTheEnd());
  EXPECT_EQ(clock->slept().size(), 1U);
}

TEST_F(NotificationStreamTest, ABacklogIsReceivedWithoutAPause) {
  const auto clock = std::make_shared<HeldClock>();
  sendMany(32 + 32 + 1);
  start(clock);
  EXPECT_EQ(arrivalsOnce(3), Arrivals({32, 32, 1}));
  hangUp();
  ASSERT_TRUE(hearsTheEnd());
  EXPECT_TRUE(clock->slept().empty());
}

TEST_F(NotificationStreamTest, ItsThreadDoesNotPushTheDaemonOffTheProcessor) {
  std::promise<int> policy;
  stream = NotificationStream::start(ours, {.arrived =
                                                [&](std::span<const NotificationStream::Value>) {
                                                  int told = -1;
                                                  sched_param parameters{};
                                                  ::pthread_getschedparam(::pthread_self(), &told,
                                                                          &parameters);
                                                  policy.set_value(told);
                                                },
                                            .hungUp = [] {}});
  ASSERT_NE(stream, nullptr);
  send(NSData{1});
  EXPECT_EQ(policy.get_future().get(), SCHED_BATCH);
}

// The receiver takes nothing until everything was sent, as one does that is busy for seconds.
TEST_F(NotificationStreamTest, TwoThousandValuesWaitForASlowMainLoopAndNoneIsLost) {
  constexpr int kValues = 2000;
  ValueInbox inbox;
  std::atomic<int> wakeUps = 0;
  inbox.open();
  stream = NotificationStream::start(ours, {.arrived =
                                                [&](std::span<const ValueBytes> arrived) {
                                                  if (inbox.add(arrived)) ++wakeUps;
                                                },
                                            .hungUp = [this] { end.set_value(); }});
  ASSERT_NE(stream, nullptr);
  for (int number = 0; number < kValues; ++number) {
    send(NSData{static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)});
  }
  hangUp();
  ASSERT_TRUE(hearsTheEnd());
  EXPECT_EQ(wakeUps, 1) << "one wake-up for the whole batch";
  const auto& all = inbox.take();
  ASSERT_EQ(all.size(), static_cast<std::size_t>(kValues));
  for (int number = 0; number < kValues; ++number) {
    const auto value = all[static_cast<std::size_t>(number)];
    ASSERT_EQ(value.size(), 2U);
    ASSERT_EQ(value[0] << 8 | value[1], number);
  }
}

}  // namespace
}  // namespace kestrin::bluez
