// Reads and writes, and requests at the edges: without a link, at its end, from other threads.
#include <atomic>
#include <thread>

#include "radios/contract/RadioContract.h"

namespace kestrin::test {
namespace {

TEST_P(LinkedRadioContract, AReadGivesExactlyOneValueEvent) {
  const auto name = find(*reader, deviceInformation(), manufacturerName());
  ASSERT_NE(name, nullptr);
  read(*reader, name);
  EXPECT_EQ(name->value(), std::nullopt);
  ASSERT_TRUE(waitFor(EventKind::value));
  bed().settle();
  ASSERT_EQ(count(EventKind::value), 1U);
  const Event answer = events(EventKind::value)[0];
  EXPECT_EQ(answer.characteristic, name);
  EXPECT_EQ(answer.error, std::nullopt);
  ASSERT_TRUE(answer.value);
  EXPECT_GT(answer.value->length(), 0U);
  EXPECT_EQ(name->value(), answer.value);
}

TEST_P(LinkedRadioContract, EveryOneOfManyReadsGivesOneValueEvent) {
  const auto name = find(*reader, deviceInformation(), manufacturerName());
  const auto revision = find(*reader, deviceInformation(), hardwareRevision());
  ASSERT_TRUE(name && revision);
  for (int i = 0; i < 3; ++i) {
    read(*reader, name);
    read(*reader, revision);
  }
  ASSERT_TRUE(waitFor(EventKind::value, 6));
  bed().settle();
  const auto answers = events(EventKind::value);
  ASSERT_EQ(answers.size(), 6U);
  for (std::size_t i = 0; i < answers.size(); ++i) {
    EXPECT_EQ(answers[i].characteristic, i % 2 == 0 ? name : revision);
  }
}

TEST_P(LinkedRadioContract, AReadOfWhatCanNotBeReadGivesOneValueEventWithAnError) {
  const auto command = find(*reader, dataService(), commandCharacteristic());
  ASSERT_NE(command, nullptr);
  read(*reader, command);
  ASSERT_TRUE(waitFor(EventKind::value));
  bed().settle();
  ASSERT_EQ(count(EventKind::value), 1U);
  EXPECT_TRUE(events(EventKind::value)[0].error);
  EXPECT_EQ(command->value(), std::nullopt);
}

TEST_P(LinkedRadioContract, WritesArriveInOrderEmptyOnesTooAndAbsentOnesNever) {
  const auto command = find(*reader, dataService(), commandCharacteristic());
  ASSERT_NE(command, nullptr);
  const auto values = manyValues(60);
  for (const auto& value : values) {
    write(*reader, command, value);
    write(*reader, command, std::nullopt);
  }
  ASSERT_TRUE(bed().runUntil([&] { return bed().writes().size() >= values.size(); }));
  bed().settle();
  EXPECT_EQ(bed().writes(), values);
  EXPECT_EQ(command->value(), std::nullopt) << "a written value is not a read one";
}

TEST_P(LinkedRadioContract, AReadersAnswerComesAfterTheWriteThatAskedForIt) {
  const auto reply = findSubscribed(*reader);
  const auto command = find(*reader, dataService(), commandCharacteristic());
  ASSERT_TRUE(reply && command);
  const NSData question{0xBB, 0x00, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x65, 0x97};
  write(*reader, command, question);
  ASSERT_TRUE(waitFor(EventKind::value));
  EXPECT_EQ(bed().writes(), std::vector<NSData>{question});
  const auto first = events(EventKind::value)[0].value.value();
  ASSERT_GT(first.length(), 2U);
  EXPECT_EQ(first.bytes()[0], 0xBB);
  EXPECT_EQ(first.bytes()[1], 0x01);
  EXPECT_EQ(first.bytes()[2], 0x03);
}

TEST_P(LinkedRadioContract, WhatIsAskedOfAnEarlierLinksObjectsGoesNowhereQuietly) {
  const auto reply = find(*reader, dataService(), replyCharacteristic());
  const auto command = find(*reader, dataService(), commandCharacteristic());
  const auto name = find(*reader, deviceInformation(), manufacturerName());
  ASSERT_TRUE(reply && command && name);
  const auto askAll = [&] {
    recorder().clear();
    read(*reader, name);
    subscribe(*reader, reply);
    write(*reader, command, NSData{1});
    bed().settle();
    EXPECT_EQ(recorder().count(), 0U);
  };
  bed().dropLink();
  ASSERT_TRUE(waitFor(EventKind::disconnected));
  bed().settle();
  askAll();
  ASSERT_TRUE(connectAndWait(*central, reader));
  askAll();
  EXPECT_EQ(bed().writes(), std::vector<NSData>());
}

TEST_P(LinkedRadioContract, AbsentCharacteristicsAreIgnored) {
  read(*reader, nullptr);
  subscribe(*reader, nullptr);
  write(*reader, nullptr, NSData{1});
  bed().settle();
  EXPECT_EQ(recorder().count(), 0U);
}

TEST_P(LinkedRadioContract, WhatIsUnderWayAtTheLinksEndIsAnsweredOnce) {
  const auto reply = find(*reader, dataService(), replyCharacteristic());
  const auto name = find(*reader, deviceInformation(), manufacturerName());
  ASSERT_TRUE(reply && name);
  const auto askBoth = [&] {
    recorder().clear();
    read(*reader, name);
    subscribe(*reader, reply);
  };
  const auto expectAnswers = [&] {
    ASSERT_TRUE(waitFor(EventKind::disconnected));
    bed().settle();
    EXPECT_EQ(count(EventKind::value), 1U);
    EXPECT_EQ(count(EventKind::notificationState), 1U);
    EXPECT_EQ(count(EventKind::disconnected), 1U);
  };
  askBoth();
  bed().dropLink();
  expectAnswers();
}

TEST_P(LinkedRadioContract, WhatIsUnderWayWhenItsLinkIsCancelledIsAnsweredOnce) {
  const auto reply = find(*reader, dataService(), replyCharacteristic());
  const auto name = find(*reader, deviceInformation(), manufacturerName());
  ASSERT_TRUE(reply && name);
  recorder().clear();
  read(*reader, name);
  subscribe(*reader, reply);
  cancel(*central, reader);
  ASSERT_TRUE(waitFor(EventKind::disconnected));
  bed().settle();
  EXPECT_EQ(count(EventKind::value), 1U);
  EXPECT_EQ(count(EventKind::notificationState), 1U);
  EXPECT_EQ(count(EventKind::disconnected), 1U);
}

TEST_P(LinkedRadioContract, WhatIsAskedBetweenALinksEndAndItsReportIsAnsweredOnceBeforeThat) {
  const auto reply = find(*reader, dataService(), replyCharacteristic());
  const auto command = find(*reader, dataService(), commandCharacteristic());
  const auto name = find(*reader, deviceInformation(), manufacturerName());
  ASSERT_TRUE(reply && command && name);
  const auto services = reader->services();
  ASSERT_TRUE(services && !services->empty());
  const auto service = services->front();
  const std::vector<EventKind> kinds = {EventKind::services, EventKind::characteristics,
                                        EventKind::value, EventKind::notificationState};
  const auto expectOneErrorOfEach = [&] {
    for (const auto kind : kinds) {
      const auto answers = events(kind);
      ASSERT_EQ(answers.size(), 1U) << "kind " << static_cast<int>(kind);
      EXPECT_TRUE(answers[0].error) << "kind " << static_cast<int>(kind);
    }
  };
  recorder().clear();
  recorder().onEvent = [&](const Event& event) {
    if (event.kind == EventKind::disconnected) expectOneErrorOfEach();
  };
  cancel(*central, reader);
  discoverServices(*reader, std::nullopt);
  discoverCharacteristics(*reader, service, std::nullopt);
  read(*reader, name);
  subscribe(*reader, reply);
  write(*reader, command, NSData{1});
  ASSERT_TRUE(waitFor(EventKind::disconnected));
  bed().settle();
  recorder().onEvent = nullptr;
  expectOneErrorOfEach();
  EXPECT_EQ(count(EventKind::disconnected), 1U);
  EXPECT_EQ(bed().writes(), std::vector<NSData>());
}

TEST_P(LinkedRadioContract, WhatIsAskedInsideTheReportOfALinksEndGoesNowhere) {
  const auto reply = find(*reader, dataService(), replyCharacteristic());
  const auto name = find(*reader, deviceInformation(), manufacturerName());
  ASSERT_TRUE(reply && name);
  recorder().clear();
  recorder().onEvent = [&](const Event& event) {
    if (event.kind != EventKind::disconnected) return;
    discoverServices(*reader, std::nullopt);
    read(*reader, name);
    subscribe(*reader, reply);
  };
  cancel(*central, reader);
  ASSERT_TRUE(waitFor(EventKind::disconnected));
  bed().settle();
  recorder().onEvent = nullptr;
  EXPECT_EQ(recorder().count(), 1U);
}

TEST_P(LinkedRadioContract, WritesReadsAndSubscriptionsMayBeAskedForFromAnyThread) {
  static constexpr std::uint8_t kThreads = 4;
  static constexpr std::uint8_t kEach = 25;
  const auto reply = find(*reader, dataService(), replyCharacteristic());
  const auto command = find(*reader, dataService(), commandCharacteristic());
  const auto information = find(*reader, deviceInformation(), manufacturerName());
  ASSERT_TRUE(reply && command && information);
  recorder().clear();
  std::vector<std::thread> threads;
  std::atomic<int> running = kThreads;
  for (std::uint8_t thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (std::uint8_t i = 0; i < kEach; ++i) {
        reader->writeValue_forCharacteristic_type(
            NSData{thread, i}, command,
            CBCharacteristicWriteType::CBCharacteristicWriteWithResponse);
        if (i % 5 == 0) reader->readValueForCharacteristic(information);
        if (i % 5 == 1) reader->setNotifyValue_forCharacteristic(true, reply);
        EXPECT_TRUE(reader->name());
      }
      --running;
    });
  }
  while (running != 0) bed().turnOnce();
  for (auto& thread : threads) thread.join();
  ASSERT_TRUE(waitFor(EventKind::value, kThreads * kEach / 5));
  ASSERT_TRUE(waitFor(EventKind::notificationState, kThreads * kEach / 5));
  ASSERT_TRUE(
      bed().runUntil([&] { return bed().writes().size() >= std::size_t{kThreads} * kEach; }));
  bed().settle();
  EXPECT_EQ(count(EventKind::value), kThreads * kEach / 5U);
  EXPECT_EQ(count(EventKind::notificationState), kThreads * kEach / 5U);
  // Each thread's own writes keep their order.
  std::vector<std::uint8_t> next(kThreads, 0);
  for (const auto& value : bed().writes()) {
    ASSERT_EQ(value.length(), 2U);
    EXPECT_EQ(value.bytes()[1], next.at(value.bytes()[0])++);
  }
  EXPECT_EQ(next, std::vector<std::uint8_t>(kThreads, kEach));
}

}  // namespace
}  // namespace kestrin::test
