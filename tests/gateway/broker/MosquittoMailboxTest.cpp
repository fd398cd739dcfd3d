// What two threads hand each other.
#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <thread>
#include <vector>

#include "tools/gateway/broker/MosquittoMailbox.h"

namespace kestrin::gateway {
namespace {

bool isReadable(const MosquittoMailbox& mailbox) {
  pollfd watched{mailbox.readable(), POLLIN, 0};
  return ::poll(&watched, 1, 0) == 1;
}

std::vector<LinkEvent> acknowledgements(std::size_t count) {
  std::vector<LinkEvent> events;
  for (std::size_t i = 1; i <= count; ++i) events.emplace_back(LinkAcknowledged{i, std::nullopt});
  return events;
}

TEST(MosquittoMailbox, WakesTheThreadOnceHoweverMuchIsHanded) {
  const auto mailbox = MosquittoMailbox::create([] {});
  mailbox->hand({1, {}});
  mailbox->wake();
  EXPECT_FALSE(isReadable(*mailbox)) << "the thread does not wait, so it looks by itself";
  EXPECT_EQ(mailbox->takeOrders().messages.size(), 1U);
  mailbox->hand({2, {}});
  mailbox->hand({3, {}});
  EXPECT_FALSE(isReadable(*mailbox)) << "more may come";
  mailbox->wake();
  mailbox->wake();
  EXPECT_TRUE(isReadable(*mailbox));
  mailbox->awake();
  EXPECT_FALSE(isReadable(*mailbox));
  EXPECT_EQ(mailbox->takeOrders().messages.size(), 2U);
}

TEST(MosquittoMailbox, AnnouncesOnceUntilItIsEmptied) {
  int announced = 0;
  const auto mailbox = MosquittoMailbox::create([&] { ++announced; });
  for (int i = 0; i < 3; ++i) {
    auto events = acknowledgements(2);
    mailbox->report(events);
    EXPECT_TRUE(events.empty());
  }
  EXPECT_EQ(announced, 1);
  EXPECT_EQ(mailbox->take().size(), 6U);
  auto events = acknowledgements(1);
  mailbox->report(events);
  EXPECT_EQ(announced, 2);
}

TEST(MosquittoMailbox, IsFullUntilItIsEmptiedAndThenWakesTheThread) {
  const auto mailbox = MosquittoMailbox::create([] {});
  auto events = acknowledgements(1023);
  mailbox->report(events);
  EXPECT_FALSE(mailbox->isFull());
  events = acknowledgements(1);
  mailbox->report(events);
  EXPECT_TRUE(mailbox->isFull());
  mailbox->takeOrders();
  EXPECT_EQ(mailbox->take().size(), 1024U);
  EXPECT_TRUE(isReadable(*mailbox));
}

TEST(MosquittoMailbox, IsFullOfFewMessagesThatAreLong) {
  const auto mailbox = MosquittoMailbox::create([] {});
  for (int i = 0; i < 4; ++i) {
    EXPECT_FALSE(mailbox->isFull());
    Message message;
    message.payload.assign(std::size_t{1} << 20U, 'x');
    std::vector<LinkEvent> events{message};
    mailbox->report(events);
  }
  EXPECT_TRUE(mailbox->isFull());
  EXPECT_EQ(mailbox->take().size(), 4U);
  EXPECT_FALSE(mailbox->isFull());
}

TEST(MosquittoMailbox, AThreadThatIsHeldUpIsNotWaitedForAndEndsWithoutAWord) {
  const auto mailbox = MosquittoMailbox::create([] {});
  mailbox->beginHoldUp();
  EXPECT_FALSE(mailbox->end());
  EXPECT_FALSE(mailbox->endHoldUp());
  const auto another = MosquittoMailbox::create([] {});
  another->beginHoldUp();
  EXPECT_TRUE(another->endHoldUp());
  EXPECT_TRUE(another->end());
  EXPECT_TRUE(another->takeOrders().end);
}

TEST(MosquittoMailbox, NothingIsLostBetweenTwoThreads) {
  constexpr PublishId kCount = 20'000;
  std::atomic<int> announced{0};
  const auto mailbox = MosquittoMailbox::create([&] { ++announced; });
  std::thread thread([&] {
    std::vector<LinkEvent> events;
    for (LinkOrders orders = mailbox->takeOrders(); !orders.end; orders = mailbox->takeOrders()) {
      for (const HandedMessage& handed : orders.messages) {
        events.emplace_back(LinkAcknowledged{handed.id, std::nullopt});
      }
      mailbox->report(events);
      pollfd watched{mailbox->readable(), POLLIN, 0};
      ::poll(&watched, 1, -1);
      mailbox->awake();
    }
  });
  std::vector<PublishId> back;
  for (PublishId next = 1; back.size() < kCount;) {
    if (next <= kCount) {
      mailbox->hand({next++, {}});
      mailbox->wake();
    }
    for (const LinkEvent& event : mailbox->take()) {
      back.push_back(std::get<LinkAcknowledged>(event).id);
    }
  }
  EXPECT_TRUE(mailbox->end());
  thread.join();
  for (PublishId i = 0; i < kCount; ++i) ASSERT_EQ(back[static_cast<std::size_t>(i)], i + 1);
  EXPECT_GT(announced, 0);
}

}  // namespace
}  // namespace kestrin::gateway
