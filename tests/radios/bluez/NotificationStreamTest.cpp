#include "NotificationStream.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <future>
#include <mutex>
#include <vector>

#include "KestrinBLESDK/platform/MainRunLoop.h"

namespace kestrin::bluez {
namespace {

using namespace std::chrono_literals;

constexpr auto kPatience = 20s;

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

  void start() {
    stream = NotificationStream::start(ours, {.arrived =
                                                  [this](const NSData& value) {
                                                    const std::scoped_lock lock(mutex);
                                                    values.push_back(value);
                                                  },
                                              .hungUp = [this] { end.set_value(); }});
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
  std::vector<NSData> received() {
    const std::scoped_lock lock(mutex);
    return values;
  }

  int daemon = -1;
  int ours = -1;
  std::mutex mutex;
  std::vector<NSData> values;
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

// The receiver takes nothing until everything was sent, as one does that is busy for seconds.
TEST_F(NotificationStreamTest, TwoThousandValuesWaitForASlowMainLoopAndNoneIsLost) {
  constexpr int kValues = 2000;
  ValueInbox inbox;
  std::atomic<int> wakeUps = 0;
  inbox.open();
  stream = NotificationStream::start(ours, {.arrived =
                                                [&](NSData value) {
                                                  if (inbox.add(std::move(value))) ++wakeUps;
                                                },
                                            .hungUp = [this] { end.set_value(); }});
  ASSERT_NE(stream, nullptr);
  for (int number = 0; number < kValues; ++number) {
    send(NSData{static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)});
  }
  hangUp();
  ASSERT_TRUE(hearsTheEnd());
  EXPECT_EQ(wakeUps, 1) << "one wake-up for the whole batch";
  const auto all = inbox.take();
  ASSERT_EQ(all.size(), static_cast<std::size_t>(kValues));
  for (int number = 0; number < kValues; ++number) {
    const NSData& value = all[static_cast<std::size_t>(number)];
    ASSERT_EQ(value.length(), 2U);
    ASSERT_EQ(value.bytes()[0] << 8 | value.bytes()[1], number);
  }
}

TEST(ValueInbox, WakesOnceForABatchAndAgainAfterItWasTaken) {
  ValueInbox inbox;
  EXPECT_FALSE(inbox.open());
  EXPECT_TRUE(inbox.add(NSData{1}));
  EXPECT_FALSE(inbox.add(NSData()));
  EXPECT_EQ(inbox.take(), std::vector<NSData>({NSData{1}, NSData()}));
  EXPECT_TRUE(inbox.take().empty());
  EXPECT_TRUE(inbox.add(NSData{2}));
}

TEST(ValueInbox, HoldsValuesBackUntilItIsOpened) {
  ValueInbox inbox;
  EXPECT_FALSE(inbox.add(NSData{1}));
  EXPECT_FALSE(inbox.add(NSData{2}));
  EXPECT_TRUE(inbox.open());
  EXPECT_FALSE(inbox.add(NSData{3}));
  EXPECT_EQ(inbox.take().size(), 3U);
}

}  // namespace
}  // namespace kestrin::bluez
