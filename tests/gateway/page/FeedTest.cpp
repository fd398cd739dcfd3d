// What open pages are sent, and who has lost the thread.
#include "tools/gateway/page/Feed.h"

#include <gtest/gtest.h>

#include "gateway/page/Statuses.h"

namespace kestrin::gateway::test {
namespace {

FeedEvent statusEvent() { return {std::make_shared<Status>(someStatus()), nullptr}; }

TEST(Feed, HandsOutEachEventAtItsPlace) {
  Feed feed;
  FeedEvent event;
  EXPECT_EQ(feed.at(0, event), Feed::Look::nothing);
  EXPECT_EQ(feed.newest(), nullptr);
  const FeedEvent first = statusEvent();
  feed.push(first);
  EXPECT_EQ(feed.end(), 1U);
  EXPECT_EQ(feed.at(0, event), Feed::Look::found);
  EXPECT_EQ(event.status, first.status);
  EXPECT_EQ(feed.newest(), first.status);
  EXPECT_EQ(feed.at(1, event), Feed::Look::nothing);
}

TEST(Feed, KeepsTheNewestStatusBehindFrames) {
  Feed feed;
  const FeedEvent first = statusEvent();
  feed.push(first);
  feed.push({nullptr, std::make_shared<FrameBatch>()});
  EXPECT_EQ(feed.newest(), first.status);
}

TEST(Feed, SaysThatAPlaceIsLostAndKeepsNoMoreThanItsPlaces) {
  Feed feed;
  const FeedEvent first = statusEvent();
  feed.push(first);
  for (std::size_t i = 0; i < Feed::kPlaces; ++i) feed.push(statusEvent());
  FeedEvent event;
  EXPECT_EQ(feed.at(0, event), Feed::Look::lost);
  EXPECT_EQ(feed.at(1, event), Feed::Look::found);
  EXPECT_EQ(first.status.use_count(), 1) << "the feed still has it";
}

TEST(Feed, WritesAnEventInOneLineOfData) {
  Status status = someStatus();
  status.readers[0].name = "a\nb\r\n\ndata: c";
  const std::string text = textOf(FeedEvent{std::make_shared<Status>(status), nullptr});
  EXPECT_TRUE(text.starts_with("event: status\ndata: {"));
  EXPECT_TRUE(text.ends_with("}\n\n"));
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3);
  EXPECT_EQ(text.find('\r'), std::string::npos);
  auto batch = std::make_shared<FrameBatch>();
  batch->frames = {frameNumber(7)};
  batch->left = 3;
  EXPECT_EQ(textOf(FeedEvent{nullptr, batch}).substr(0, 34),
            "event: frames\ndata: {\"v\":1,\"frames");
}

}  // namespace
}  // namespace kestrin::gateway::test
