// Creation and the client's plain queries and properties.
#include <algorithm>
#include <functional>
#include <type_traits>

#include "link/LinkTest.h"

namespace kestrin::test {
namespace {

using Peer = KestrinBleMgrTestPeer;

class Creation : public LinkTest {};
class Properties : public LinkTest {};
class Queries : public LinkTest {};

TEST_F(Creation, LeavesEveryReferenceAbsentAndIsNotConnected) {
  const auto made = platform.makeManager();
  KestrinBleMgr& m = *made;
  EXPECT_EQ(Peer::_buf(m), (std::array<std::uint8_t, 255>{}));
  EXPECT_EQ(Peer::_bufHead(m), 0);
  EXPECT_EQ(Peer::centralManager(m), nullptr);
  EXPECT_EQ(Peer::discoveredPeripheral(m), nullptr);
  EXPECT_EQ(Peer::characteristic(m), nullptr);
  EXPECT_EQ(Peer::peripheralList(m), std::nullopt);
  EXPECT_EQ(Peer::peripheralNameList(m), std::nullopt);
  EXPECT_EQ(Peer::rxCharacteristic(m), nullptr);
  EXPECT_EQ(Peer::txCharacteristic(m), nullptr);
  EXPECT_FALSE(Peer::isConnected(m));
  EXPECT_FALSE(Peer::_mutableReceivedData(m).has_value());
  EXPECT_TRUE(Peer::_delegate(m).expired());
  EXPECT_TRUE(Peer::_rcpReceiverDelegate(m).expired());
}

TEST_F(Creation, GivesTheObjectItsThirteenFieldsInOrder) {
  KestrinBleMgr& m = *manager;
  const void* const fields[] = {
      &Peer::_buf(m),
      &Peer::_bufHead(m),
      &Peer::centralManager(m),
      &Peer::discoveredPeripheral(m),
      &Peer::characteristic(m),
      &Peer::peripheralList(m),
      &Peer::peripheralNameList(m),
      &Peer::rxCharacteristic(m),
      &Peer::txCharacteristic(m),
      &Peer::isConnected(m),
      &Peer::_mutableReceivedData(m),
      &Peer::_delegate(m),
      &Peer::_rcpReceiverDelegate(m),
  };
  EXPECT_EQ(std::size(fields), 13U);
  EXPECT_TRUE(std::ranges::is_sorted(fields, std::less<>()));
  static_assert(std::is_same_v<decltype(Peer::_buf(m)), std::array<std::uint8_t, 255>&>);
  static_assert(std::is_same_v<decltype(Peer::_bufHead(m)), std::uint16_t&>);
}

TEST_F(Creation, MakesADelegateOfTheCentralThePeripheralAndThePeripheralManager) {
  static_assert(std::is_base_of_v<CBCentralManagerDelegate, KestrinBleMgr>);
  static_assert(std::is_base_of_v<CBPeripheralDelegate, KestrinBleMgr>);
  static_assert(std::is_base_of_v<CBPeripheralManagerDelegate, KestrinBleMgr>);
  scan();
  EXPECT_EQ(platform.central()->delegate(), Peer::asCentralManagerDelegate(manager));
}

// How many of the operations that are not the application's business can be named in `Class`.
template <class Class>
int reached() {
  int count = 0;
  if constexpr (requires { &Class::p_initCentralManager; }) ++count;
  if constexpr (requires { &Class::p_isKVXDevice; }) ++count;
  if constexpr (requires { &Class::p_isConnectedBLE; }) ++count;
  if constexpr (requires { &Class::p_disconnectBLE; }) ++count;
  if constexpr (requires { &Class::p_getReaderInfo; }) ++count;
  if constexpr (requires { &Class::p_pluggedEvent; }) ++count;
  if constexpr (requires { &Class::p_sendDataToBLE; }) ++count;
  if constexpr (requires { &Class::getCrcPolynomial_acc; }) ++count;
  if constexpr (requires { &Class::clearRcpFrmReader; }) ++count;
  if constexpr (requires { &Class::parseRcpFrmReader; }) ++count;
  if constexpr (requires { &Class::easEnterBackground; }) ++count;
  if constexpr (requires { &Class::accessoryDidDisconnect; }) ++count;
  if constexpr (requires { &Class::peripheralManagerDidUpdateState; }) ++count;
  if constexpr (requires { &Class::centralManagerDidUpdateState; }) ++count;
  if constexpr (requires { &Class::centralManager_didDiscoverPeripheral_advertisementData_RSSI; })
    ++count;
  if constexpr (requires { &Class::centralManager_didConnectPeripheral; }) ++count;
  if constexpr (requires { &Class::centralManager_didDisconnectPeripheral_error; }) ++count;
  if constexpr (requires { &Class::peripheral_didDiscoverServices; }) ++count;
  if constexpr (requires { &Class::peripheral_didDiscoverCharacteristicsForService_error; })
    ++count;
  if constexpr (requires { &Class::peripheral_didUpdateValueForCharacteristic_error; }) ++count;
  if constexpr (requires { &Class::peripheral_didUpdateNotificationStateForCharacteristic_error; })
    ++count;
  return count;
}

TEST_F(Creation, KeepsPrivateOperationsAndEventsOutOfAnApplicationsReach) {
  // The peer names each, so none is missed for being misspelt.
  EXPECT_EQ(reached<Peer>(), 21);
  EXPECT_EQ(reached<KestrinBleMgr>(), 0);
  EXPECT_FALSE((std::is_convertible_v<KestrinBleMgr*, CBCentralManagerDelegate*>));
  EXPECT_FALSE((std::is_convertible_v<KestrinBleMgr*, CBPeripheralDelegate*>));
  EXPECT_FALSE((std::is_convertible_v<KestrinBleMgr*, CBPeripheralManagerDelegate*>));
}

/// As `Made made({}, platform)` would have it.
template <class Made>
concept TakesBraces = requires(const Platform& platform) {
  Made({}, platform);
};
struct OpenToBraces {
  struct Tag {};
  OpenToBraces(Tag, const Platform&) {}
};

TEST_F(Creation, IsByInitAlone) {
  static_assert(TakesBraces<OpenToBraces>);
  static_assert(!TakesBraces<KestrinBleMgr>);
  static_assert(!std::is_constructible_v<KestrinBleMgr, const Platform&>);
  static_assert(!std::is_default_constructible_v<KestrinBleMgr>);
}

TEST_F(Creation, RegistersForTheBackgroundFromAnySenderAndAsksForNothingElse) {
  const auto made = platform.makeManager();
  EXPECT_EQ(platform.take(),
            "\naddObserver manager#2 selector easEnterBackground "
            "name UIApplicationDidEnterBackgroundNotification object (absent)\n");
}

TEST_F(Creation, GivesAnotherManagerEachTime) {
  const auto one = platform.makeManager();
  const auto other = platform.makeManager();
  EXPECT_NE(one, other);
  one->scanBLE();
  EXPECT_NE(Peer::centralManager(*one), nullptr);
  EXPECT_EQ(Peer::centralManager(*other), nullptr);
}

TEST_F(Creation, IdleFieldsKeepTheirContentsThroughAWholeConversation) {
  Peer::_buf(*manager).fill(0x5A);
  Peer::_bufHead(*manager) = 513;
  const auto idle = characteristicOf("2A00");
  Peer::characteristic(*manager) = idle;
  const Reader reader = standardReader();
  plugIn(reader);
  manager->send(NSData{0xBB, 0x00});
  platform.didUpdateValue(reader.peripheral, reader.rx, NSData{0xBB, 0x01, 0x02});
  manager->close();
  platform.didDisconnect(reader.peripheral);
  manager->scanBLE();
  for (const std::uint8_t byte : Peer::_buf(*manager)) EXPECT_EQ(byte, 0x5A);
  EXPECT_EQ(Peer::_bufHead(*manager), 513);
  EXPECT_EQ(Peer::characteristic(*manager), idle);
}

TEST_F(Creation, OwnsWhatItFoundUntilItEnds) {
  std::weak_ptr<RecordingPeripheral> peripheral;
  std::weak_ptr<RecordingCharacteristic> rx;
  std::weak_ptr<RecordingCharacteristic> tx;
  {
    Reader reader = standardReader();
    plugIn(reader);
    reader.peripheral->shownServices.reset();
    peripheral = reader.peripheral;
    rx = reader.rx;
    tx = reader.tx;
  }
  EXPECT_FALSE(peripheral.expired());
  EXPECT_FALSE(rx.expired());
  EXPECT_FALSE(tx.expired());
  manager.reset();
  EXPECT_TRUE(peripheral.expired());
  EXPECT_TRUE(rx.expired());
  EXPECT_TRUE(tx.expired());
  EXPECT_EQ(platform.take(), "\ncentral#1 released\n");
}

TEST_F(Creation, OwnsEveryAcceptedReaderUntilTheNextScan) {
  auto first = platform.peripheral("TQM_HOLV-1");
  const std::weak_ptr<RecordingPeripheral> alive = first;
  scan();
  platform.didDiscover(first);
  platform.didDiscover(platform.peripheral("TQM_HOLV-2"));
  first.reset();
  EXPECT_FALSE(alive.expired());
  manager->scanBLE();
  EXPECT_TRUE(alive.expired());
}

TEST_F(Creation, LetsGoOfWhatItReplaces) {
  Reader first = standardReader();
  plugIn(first);
  const std::weak_ptr<RecordingPeripheral> peripheral = first.peripheral;
  const std::weak_ptr<RecordingCharacteristic> rx = first.rx;
  const std::weak_ptr<RecordingCharacteristic> tx = first.tx;
  first = {};
  EXPECT_FALSE(peripheral.expired());
  linkUp(standardReader("TQM_HOLV-2"));
  EXPECT_TRUE(peripheral.expired());
  EXPECT_TRUE(rx.expired());
  EXPECT_TRUE(tx.expired());
}

TEST_F(Properties, ReadBackWhatWasSet) {
  EXPECT_EQ(manager->delegate(), delegate);
  EXPECT_EQ(manager->rcpReceiverDelegate(), receiver);
  const auto otherDelegate = std::make_shared<RecordingDelegate>(platform);
  const auto otherReceiver = std::make_shared<RecordingReceiver>(platform);
  manager->setDelegate(std::weak_ptr(otherDelegate));
  manager->setRcpReceiverDelegate(std::weak_ptr(otherReceiver));
  EXPECT_EQ(manager->delegate(), otherDelegate);
  EXPECT_EQ(manager->rcpReceiverDelegate(), otherReceiver);
  manager->setDelegate(nullptr);
  EXPECT_EQ(manager->delegate(), nullptr);
  EXPECT_EQ(manager->rcpReceiverDelegate(), otherReceiver);
  manager->setRcpReceiverDelegate(nullptr);
  EXPECT_EQ(manager->rcpReceiverDelegate(), nullptr);
  EXPECT_EQ(platform.take(), kNothing);
}

TEST_F(Properties, NeverOwnADelegate) {
  delegate.reset();
  receiver.reset();
  EXPECT_EQ(platform.take(), "\ndelegate gone\nreceiver gone\n");
  EXPECT_EQ(manager->delegate(), nullptr);
  EXPECT_EQ(manager->rcpReceiverDelegate(), nullptr);
}

TEST_F(Properties, TakeADelegateThatIsEmbeddedInItsOwner) {
  struct Application {
    explicit Application(RecordingPlatform& p) : listener(p), reader(p) {}
    RecordingDelegate listener;
    RecordingReceiver reader;
  };
  auto application = std::make_shared<Application>(platform);
  manager->setDelegate(std::shared_ptr<RecordingDelegate>(application, &application->listener));
  manager->setRcpReceiverDelegate(
      std::shared_ptr<RecordingReceiver>(application, &application->reader));
  manager->stopSacnBLE();
  manager->close();
  EXPECT_EQ(platform.take(), R"(
delegate scanBleStatus 1
receiver plugChangedStatus false
)");
  application.reset();
  EXPECT_EQ(manager->delegate(), nullptr);
  EXPECT_EQ(manager->rcpReceiverDelegate(), nullptr);
}

TEST_F(Queries, AnswerNoBeforeAnyScanAndAskNothing) {
  EXPECT_FALSE(manager->open());
  EXPECT_FALSE(manager->isOpened());
  EXPECT_EQ(manager->pripheral(), nullptr);
  EXPECT_EQ(platform.take(), kNothing);
}

TEST_F(Queries, OpenAndIsOpenedAnswerTheLinkFlagAndChangeNothing) {
  plugIn(standardReader());
  const auto central = Peer::centralManager(*manager);
  for (const bool connected : {true, false}) {
    Peer::isConnected(*manager) = connected;
    EXPECT_EQ(manager->open(), connected);
    EXPECT_EQ(manager->isOpened(), connected);
    EXPECT_EQ(Peer::isConnected(*manager), connected);
  }
  EXPECT_EQ(Peer::centralManager(*manager), central);
  EXPECT_EQ(platform.take(), kNothing);
}

TEST_F(Queries, PripheralIsTheReaderAcceptedLastAndThenTheChosenOne) {
  const auto a = platform.peripheral("TQM_HOLV-A");
  const auto b = platform.peripheral("TQM_HOLV-B");
  scan();
  platform.didDiscover(a);
  EXPECT_EQ(manager->pripheral(), a);
  platform.didDiscover(b);
  EXPECT_EQ(manager->pripheral(), b);
  manager->connectBLE(a);
  EXPECT_EQ(manager->pripheral(), a);
  platform.take();
  EXPECT_EQ(manager->pripheral(), a);
  EXPECT_EQ(platform.take(), kNothing);
}

TEST_F(Queries, PeripheralManagerStatesChangeNothing) {
  const Reader reader = standardReader();
  plugIn(reader);
  Peer::peripheralManagerDidUpdateState(*manager, nullptr);
  Peer::peripheralManagerDidUpdateState(*manager, std::make_shared<int>(5));
  EXPECT_TRUE(manager->open());
  EXPECT_EQ(manager->pripheral(), reader.peripheral);
  platform.run(10.0);
  EXPECT_EQ(platform.take(), kNothing);
}

TEST_F(Queries, CloseBeforeAnyScanOnlyTellsTheReceiver) {
  manager->close();
  EXPECT_EQ(platform.take(), "\nreceiver plugChangedStatus false\n");
}

}  // namespace
}  // namespace kestrin::test
