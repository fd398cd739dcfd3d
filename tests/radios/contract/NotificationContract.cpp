// Subscriptions and notified values.
#include "radios/contract/RadioContract.h"

namespace kestrin::test {
namespace {

std::vector<NSData> valuesOf(const std::vector<Event>& events) {
  std::vector<NSData> values;
  for (const auto& event : events) {
    EXPECT_EQ(event.error, std::nullopt);
    EXPECT_TRUE(event.value);
    values.push_back(event.value.value_or(NSData()));
  }
  return values;
}

TEST_P(LinkedRadioContract, NotifiedValuesComeInOrderNoneMergedLostOrDoubledEmptyOnesToo) {
  const auto reply = findSubscribed(*reader);
  ASSERT_NE(reply, nullptr);
  const auto values = manyValues(300);
  bed().notify(values);
  ASSERT_TRUE(waitFor(EventKind::value, values.size()));
  bed().settle();
  EXPECT_EQ(valuesOf(events(EventKind::value)), values);
}

TEST_P(LinkedRadioContract, TheValuePersistsAndChangesImmediatelyBeforeItsEvent) {
  const auto reply = findSubscribed(*reader);
  ASSERT_NE(reply, nullptr);
  EXPECT_EQ(reply->value(), std::nullopt);
  bed().notify({NSData{1}});
  EXPECT_EQ(reply->value(), std::nullopt);
  ASSERT_TRUE(waitFor(EventKind::value));
  bed().settle();
  EXPECT_EQ(reply->value(), NSData{1});
  bed().notify({NSData{2}, NSData{3}});
  ASSERT_TRUE(waitFor(EventKind::value, 3));
  EXPECT_EQ(events(EventKind::value)[1].value, NSData{2});
  EXPECT_EQ(reply->value(), NSData{3});
  bed().dropLink();
  ASSERT_TRUE(waitFor(EventKind::disconnected));
  EXPECT_EQ(reply->value(), NSData{3});
}

TEST_P(LinkedRadioContract, EverySubscriptionRequestIsAnsweredOnce) {
  const auto reply = find(*reader, dataService(), replyCharacteristic());
  ASSERT_NE(reply, nullptr);
  subscribe(*reader, reply);
  subscribe(*reader, reply);
  subscribe(*reader, reply, false);
  subscribe(*reader, reply);
  ASSERT_TRUE(waitFor(EventKind::notificationState, 4));
  bed().settle();
  const auto answers = events(EventKind::notificationState);
  ASSERT_EQ(answers.size(), 4U);
  for (const auto& answer : answers) {
    EXPECT_EQ(answer.characteristic, reply);
    EXPECT_EQ(answer.error, std::nullopt);
  }
  bed().notify({NSData{1}});
  bed().settle();
  EXPECT_EQ(count(EventKind::value), 1U) << "subscribing twice must not double a value";
}

TEST_P(LinkedRadioContract, NothingIsNotifiedWithoutASubscription) {
  const auto reply = findSubscribed(*reader);
  ASSERT_NE(reply, nullptr);
  subscribe(*reader, reply, false);
  ASSERT_TRUE(waitFor(EventKind::notificationState, 2));
  bed().notify({NSData{1}});
  bed().settle();
  EXPECT_EQ(count(EventKind::value), 0U);
  EXPECT_EQ(reply->value(), std::nullopt);
}

TEST_P(LinkedRadioContract, ARefusedSubscriptionIsAnsweredWithItsError) {
  const auto reply = find(*reader, dataService(), replyCharacteristic());
  ASSERT_NE(reply, nullptr);
  bed().refuseSubscriptions(true);
  subscribe(*reader, reply);
  ASSERT_TRUE(waitFor(EventKind::notificationState));
  bed().settle();
  ASSERT_EQ(count(EventKind::notificationState), 1U);
  EXPECT_TRUE(events(EventKind::notificationState)[0].error);
}

TEST_P(LinkedRadioContract, ARefusedSubscriptionCanBeAskedForAgain) {
  const std::string why = bed().whyRefusedSubscriptionsStayRefused();
  if (!why.empty()) GTEST_SKIP() << why;
  const auto reply = find(*reader, dataService(), replyCharacteristic());
  ASSERT_NE(reply, nullptr);
  bed().refuseSubscriptions(true);
  subscribe(*reader, reply);
  ASSERT_TRUE(waitFor(EventKind::notificationState));
  bed().refuseSubscriptions(false);
  subscribe(*reader, reply);
  ASSERT_TRUE(waitFor(EventKind::notificationState, 2));
  EXPECT_EQ(events(EventKind::notificationState)[1].error, std::nullopt);
}

TEST_P(LinkedRadioContract, ASubscriptionToWhatDoesNotNotifyIsAnsweredWithAnError) {
  const auto command = find(*reader, dataService(), commandCharacteristic());
  ASSERT_NE(command, nullptr);
  subscribe(*reader, command);
  ASSERT_TRUE(waitFor(EventKind::notificationState));
  bed().settle();
  ASSERT_EQ(count(EventKind::notificationState), 1U);
  EXPECT_TRUE(events(EventKind::notificationState)[0].error);
}

TEST_P(LinkedRadioContract, ASubscriptionEndsWithItsLink) {
  ASSERT_NE(findSubscribed(*reader), nullptr);
  bed().dropLink();
  ASSERT_TRUE(waitFor(EventKind::disconnected));
  ASSERT_TRUE(connectAndWait(*central, reader));
  const auto reply = find(*reader, dataService(), replyCharacteristic());
  ASSERT_NE(reply, nullptr);
  bed().notify({NSData{1}});
  bed().settle();
  EXPECT_EQ(count(EventKind::value), 0U);
  subscribe(*reader, reply);
  ASSERT_TRUE(waitFor(EventKind::notificationState, 2));
  bed().notify({NSData{2}});
  ASSERT_TRUE(waitFor(EventKind::value));
  EXPECT_EQ(events(EventKind::value)[0].characteristic, reply);
}

}  // namespace
}  // namespace kestrin::test
