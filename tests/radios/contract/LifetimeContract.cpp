// What holds when central managers, delegates and the radio itself go away, at any moment.
#include "radios/contract/RadioContract.h"

namespace kestrin::test {
namespace {

TEST_P(RadioContract, ADroppedCentralManagerDeliversNoEvent) {
  auto central = makeCentral();
  central.reset();
  bed().settle();
  EXPECT_EQ(recorder().count(), 0U);
  central = makePoweredCentral();
  scan(*central);
  central.reset();
  bed().settle();
  EXPECT_EQ(recorder().count(), 0U);
}

TEST_P(LinkedRadioContract, ADroppedCentralManagerLetsGoOfItsLinkWithoutAReport) {
  central.reset();
  ASSERT_TRUE(bed().runUntil([&] { return !bed().readerIsLinked(); }));
  bed().settle();
  EXPECT_EQ(recorder().count(), 0U);
}

TEST_P(RadioContract, ADroppedCentralManagerLetsGoOfItsAttempt) {
  auto central = makePoweredCentral();
  const auto reader = findReader(*central);
  ASSERT_NE(reader, nullptr);
  bed().vanish();
  connect(*central, reader);
  bed().settle();
  central.reset();
  bed().appear();
  bed().settle();
  EXPECT_EQ(recorder().count(), 0U);
  EXPECT_FALSE(bed().readerIsLinked());
}

TEST_P(LinkedRadioContract, ACancellationRightBeforeTheEndOfItsCentralManagerIsCarriedOut) {
  cancel(*central, reader);
  central.reset();
  ASSERT_TRUE(bed().runUntil([&] { return !bed().readerIsLinked(); }));
  bed().settle();
  EXPECT_EQ(recorder().count(), 0U);
}

TEST_P(LinkedRadioContract, ACentralManagerThatReplacesAnotherCanHaveItsReader) {
  cancel(*central, reader);
  central.reset();
  central = makePoweredCentral();
  EXPECT_EQ(findReader(*central), reader);
  ASSERT_TRUE(connectAndWait(*central, reader));
  bed().settle();
  EXPECT_TRUE(bed().readerIsLinked());
  EXPECT_EQ(count(EventKind::disconnected), 0U);
}

TEST_P(LinkedRadioContract, DroppingOneOfTwoCentralManagersLeavesTheOtherItsLink) {
  const auto other = makePoweredCentral();
  ASSERT_TRUE(connectAndWait(*other, reader));
  central.reset();
  bed().settle();
  EXPECT_TRUE(bed().readerIsLinked());
  EXPECT_EQ(count(EventKind::disconnected), 0U);
  bed().dropLink();
  ASSERT_TRUE(waitFor(EventKind::disconnected));
  bed().settle();
  EXPECT_EQ(count(EventKind::disconnected), 1U);
}

TEST_P(LinkedRadioContract, ADelegateThatIsGoneIsNotCalled) {
  const auto heldAlone = [this] {
    const auto gone = std::make_shared<EventRecorder>();
    reader->setDelegate(gone);
    return std::pair(bed().radio()->initWithDelegate_queue(gone, nullptr),
                     std::weak_ptr<EventRecorder>(gone));
  };
  const auto [silent, gone] = heldAlone();
  EXPECT_TRUE(gone.expired()) << "delegates are held weakly";
  discoverServices(*reader, std::nullopt);
  bed().settle();
  EXPECT_EQ(silent->state(), CBManagerState::poweredOn);
  EXPECT_EQ(recorder().count(), 0U);
}

TEST_P(LinkedRadioContract, TheDelegateSetLastGetsTheEvents) {
  discoverServices(*reader, std::nullopt);
  const auto later = std::make_shared<EventRecorder>();
  reader->setDelegate(later);
  ASSERT_TRUE(bed().runUntil([&] { return later->count(EventKind::services) == 1; }));
  EXPECT_EQ(count(EventKind::services), 0U);
}

// In each kind of event in turn the central manager is dropped, by the event's own callback.
TEST_P(RadioContract, ACentralManagerMayGoAwayInsideAnyEvent) {
  for (const EventKind last :
       {EventKind::state, EventKind::sighting, EventKind::connected, EventKind::services,
        EventKind::characteristics, EventKind::notificationState, EventKind::value,
        EventKind::disconnected}) {
    SCOPED_TRACE(static_cast<int>(last));
    std::shared_ptr<CBCentralManager> central;
    bool dropped = false;
    recorder().onEvent = [&](const Event& event) {
      if (event.kind == last) {
        dropped = true;
        central.reset();
      }
      if (!central) return;
      const auto& peripheral = event.peripheral;
      switch (event.kind) {
        case EventKind::state:
          scan(*central);
          break;
        case EventKind::sighting:
          if (event.name == bed().readerName()) connect(*central, peripheral);
          break;
        case EventKind::connected:
          discoverServices(*peripheral, {{dataService()}});
          break;
        case EventKind::services:
          discoverCharacteristics(*peripheral, peripheral->services()->front(), std::nullopt);
          break;
        case EventKind::characteristics:
          subscribe(*peripheral, event.service->characteristics()->back());
          break;
        case EventKind::notificationState:
          bed().notify({NSData{1}, NSData{2}});
          break;
        case EventKind::value:
          cancel(*central, peripheral);
          break;
        case EventKind::disconnected:
          break;
      }
    };
    central = makeCentral();
    ASSERT_TRUE(bed().runUntil([&] { return dropped; }));
    ASSERT_TRUE(bed().runUntil([&] { return !bed().readerIsLinked(); }));
    const std::size_t before = recorder().count();
    bed().settle();
    EXPECT_EQ(recorder().count(), before) << "an event after the central manager's end";
  }
}

TEST_P(LinkedRadioContract, CentralManagersOutliveTheirRadio) {
  bed().dropRadio();
  answerServices({{dataService()}});
  cancel(*central, reader);
  ASSERT_TRUE(waitFor(EventKind::disconnected));
}

TEST_P(LinkedRadioContract, EverythingMayBeAskedAfterTheRunLoopsEnd) {
  const auto reply = findSubscribed(*reader);
  ASSERT_NE(reply, nullptr);
  discoverServices(*reader, std::nullopt);
  recorder().clear();
  dropBed();
  scan(*central);
  read(*reader, reply);
  subscribe(*reader, reply);
  write(*reader, reply, NSData{1});
  discoverServices(*reader, std::nullopt);
  cancel(*central, reader);
  connect(*central, reader);
  central->stopScan();
  central.reset();
  EXPECT_FALSE(reader->identifier().empty());
  EXPECT_TRUE(reader->name());
  EXPECT_EQ(recorder().count(), 0U);
}

}  // namespace
}  // namespace kestrin::test
