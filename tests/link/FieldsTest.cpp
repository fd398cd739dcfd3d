// Which of its thirteen fields each operation of the manager and each event changes, and that it
// changes no other.
#include <array>
#include <functional>

#include "link/LinkTest.h"

namespace kestrin::test {
namespace {

using FieldNames = std::vector<std::string>;

/// Every field at one moment. Delegates are held here, which no manager does.
struct Fields {
  explicit Fields(KestrinBleMgr& m)
      : buf(KestrinBleMgrTestPeer::_buf(m)),
        bufHead(KestrinBleMgrTestPeer::_bufHead(m)),
        central(KestrinBleMgrTestPeer::centralManager(m)),
        peripheral(KestrinBleMgrTestPeer::discoveredPeripheral(m)),
        characteristic(KestrinBleMgrTestPeer::characteristic(m)),
        readers(KestrinBleMgrTestPeer::peripheralList(m)),
        names(KestrinBleMgrTestPeer::peripheralNameList(m)),
        rx(KestrinBleMgrTestPeer::rxCharacteristic(m)),
        tx(KestrinBleMgrTestPeer::txCharacteristic(m)),
        connected(KestrinBleMgrTestPeer::isConnected(m)),
        received(bufferedIn(m)),
        delegate(m.delegate()),
        receiver(m.rcpReceiverDelegate()) {}

  [[nodiscard]] FieldNames differentFrom(const Fields& other) const {
    FieldNames different;
    const auto compare = [&](bool same, const char* name) {
      if (!same) different.emplace_back(name);
    };
    compare(buf == other.buf, "_buf");
    compare(bufHead == other.bufHead, "_bufHead");
    compare(central == other.central, "centralManager");
    compare(peripheral == other.peripheral, "discoveredPeripheral");
    compare(characteristic == other.characteristic, "characteristic");
    compare(readers == other.readers, "peripheralList");
    compare(names == other.names, "peripheralNameList");
    compare(rx == other.rx, "rxCharacteristic");
    compare(tx == other.tx, "txCharacteristic");
    compare(connected == other.connected, "isConnected");
    compare(received == other.received, "_mutableReceivedData");
    compare(delegate == other.delegate, "_delegate");
    compare(receiver == other.receiver, "_rcpReceiverDelegate");
    return different;
  }

  std::array<std::uint8_t, 255> buf;
  std::uint16_t bufHead;
  std::shared_ptr<CBCentralManager> central;
  std::shared_ptr<CBPeripheral> peripheral;
  std::shared_ptr<CBCharacteristic> characteristic;
  std::optional<KestrinBleMgrTestPeer::Peripherals> readers;
  std::optional<std::vector<std::string>> names;
  std::shared_ptr<CBCharacteristic> rx;
  std::shared_ptr<CBCharacteristic> tx;
  bool connected;
  std::optional<NSData> received;
  std::shared_ptr<KestrinBLEProtocols> delegate;
  std::shared_ptr<RcpReceiver> receiver;
};

/// A manager whose every field holds something.
class FieldsChanged : public LinkTest {
 protected:
  FieldsChanged() {
    plugIn(standard);
    platform.didUpdateValue(standard.peripheral, standard.rx, NSData{0xBB, 0x01});
    Peer::_buf(*manager).fill(0x5A);
    Peer::_bufHead(*manager) = 7;
    Peer::characteristic(*manager) = characteristicOf("2A00");
    Peer::peripheralNameList(*manager) = {"a name"};
  }
  FieldNames by(const std::function<void()>& work) {
    const Fields before(*manager);
    work();
    return Fields(*manager).differentFrom(before);
  }
  /// The reader, chosen, with its service known.
  Reader chosen(const Reader& reader) {
    manager->connectBLE(reader.peripheral);
    reader.peripheral->shownServices = {reader.service};
    return reader;
  }

  const FieldNames none;
  const Reader standard = standardReader();
};

TEST_F(FieldsChanged, ByAScanAreTheCentralManagerAndBothLists) {
  EXPECT_EQ(by([&] { manager->scanBLE(); }),
            (FieldNames{"centralManager", "peripheralList", "peripheralNameList"}));
}

TEST_F(FieldsChanged, ByTheEndOfAScanAreNone) {
  EXPECT_EQ(by([&] { manager->stopSacnBLE(); }), none);
}

TEST_F(FieldsChanged, ByAStateOfTheRadioAreNone) {
  for (const std::int64_t state : {0, 1, 2, 3, 4, 5, 6}) {
    EXPECT_EQ(by([&] { platform.didUpdateState(state); }), none) << state;
  }
}

TEST_F(FieldsChanged, ByAnAcceptedReaderAreThePeripheralAndItsList) {
  EXPECT_EQ(by([&] { platform.didDiscover(platform.peripheral("KVR-2")); }),
            (FieldNames{"discoveredPeripheral", "peripheralList"}));
}

TEST_F(FieldsChanged, ByASightingThatIsNotAcceptedAreNone) {
  for (const auto& seen : {standard.peripheral, platform.peripheral("Headset"),
                           platform.peripheral("nameless", std::nullopt)}) {
    EXPECT_EQ(by([&] { platform.didDiscover(seen); }), none);
  }
}

TEST_F(FieldsChanged, ByConnectingAreThePeripheralOnly) {
  EXPECT_EQ(by([&] { manager->connectBLE(platform.peripheral("KVR-2")); }),
            FieldNames{"discoveredPeripheral"});
}

TEST_F(FieldsChanged, ByALinkThatComesUpAreTheFlagOnly) {
  EXPECT_EQ(by([&] { platform.didConnect(standard.peripheral); }), none);
  Peer::isConnected(*manager) = false;
  EXPECT_EQ(by([&] { platform.didConnect(standard.peripheral); }), FieldNames{"isConnected"});
}

TEST_F(FieldsChanged, ByALostLinkAreTheFlagOnly) {
  EXPECT_EQ(by([&] { platform.didDisconnect(standard.peripheral, kError); }),
            FieldNames{"isConnected"});
  EXPECT_EQ(by([&] { platform.didDisconnect(standard.peripheral); }), none);
}

TEST_F(FieldsChanged, ByServicesAreNone) {
  for (const Reader& reader : {standardReader("TQM_HOLV-2"), kvrReader()}) {
    chosen(reader);
    EXPECT_EQ(by([&] { platform.didDiscoverServices(reader.peripheral, {reader.service}); }), none);
    EXPECT_EQ(by([&] { platform.failToDiscoverServices(reader.peripheral, kError); }), none);
  }
}

TEST_F(FieldsChanged, ByStandardCharacteristicsAreBothCharacteristicsAndTheFlag) {
  const Reader reader = chosen(standardReader("TQM_HOLV-2"));
  Peer::isConnected(*manager) = false;
  EXPECT_EQ(by([&] {
              platform.didDiscoverCharacteristics(reader.peripheral, reader.service,
                                                  {characteristicOf("2A27"), reader.rx, reader.tx});
            }),
            (FieldNames{"rxCharacteristic", "txCharacteristic", "isConnected"}));
}

TEST_F(FieldsChanged, ByKvrCharacteristicsAreBothCharacteristicsOnly) {
  const Reader reader = chosen(kvrReader());
  Peer::isConnected(*manager) = false;
  EXPECT_EQ(by([&] {
              platform.didDiscoverCharacteristics(reader.peripheral, reader.service,
                                                  {characteristicOf("2A29"), reader.rx, reader.tx});
            }),
            (FieldNames{"rxCharacteristic", "txCharacteristic"}));
}

TEST_F(FieldsChanged, ByCharacteristicsWithAnErrorAreNone) {
  for (const Reader& reader : {standardReader("TQM_HOLV-2"), kvrReader()}) {
    chosen(reader);
    Peer::isConnected(*manager) = false;
    reader.service->shownCharacteristics = {reader.rx, reader.tx};
    EXPECT_EQ(by([&] {
                platform.failToDiscoverCharacteristics(reader.peripheral, reader.service, kError);
              }),
              none);
  }
}

TEST_F(FieldsChanged, ByTheTwoDelayedRequestsAreNone) {
  EXPECT_EQ(by([&] { Peer::p_getReaderInfo(*manager); }), none);
  EXPECT_EQ(by([&] { Peer::p_pluggedEvent(*manager); }), none);
}

TEST_F(FieldsChanged, BySendingAreNone) {
  const NSData frame(std::vector<std::uint8_t>(45, 0x11));
  EXPECT_EQ(by([&] { manager->send(frame); }), none);
  EXPECT_EQ(by([&] { manager->sendPower(frame); }), none);
  EXPECT_EQ(by([&] { manager->writeRawData(kFrame); }), none);
}

TEST_F(FieldsChanged, ByAStandardReadersValueAreTheReceiveBufferOnly) {
  EXPECT_EQ(by([&] { platform.didUpdateValue(standard.peripheral, standard.rx, NSData{0x03}); }),
            FieldNames{"_mutableReceivedData"});
  EXPECT_EQ(by([&] {
              standard.rx->shownValue = NSData{0x04};
              platform.didUpdateNotificationState(standard.peripheral, standard.rx, kError);
            }),
            FieldNames{"_mutableReceivedData"});
}

TEST_F(FieldsChanged, ByValuesThatAreNotReassembledAreNone) {
  const Reader kvr = kvrReader();
  kvr.peripheral->setDelegate(Peer::asPeripheralDelegate(manager));
  EXPECT_EQ(by([&] { platform.didUpdateValue(kvr.peripheral, kvr.rx, kFrame); }), none);
  EXPECT_EQ(by([&] { platform.didUpdateValue(kvr.peripheral, kvr.rx, kFrame, kError); }), none);
  EXPECT_EQ(
      by([&] { platform.didUpdateValue(standard.peripheral, characteristicOf("2A29"), kFrame); }),
      none);
  EXPECT_EQ(by([&] {
              platform.didUpdateNotificationState(standard.peripheral, characteristicOf("FFF1"),
                                                  kError);
            }),
            none);
}

TEST_F(FieldsChanged, ByCloseAndByTheBackgroundAreNone) {
  EXPECT_EQ(by([&] { manager->close(); }), none);
  EXPECT_EQ(by([&] { platform.enterBackground(); }), none);
  EXPECT_EQ(by([&] { platform.runOneTurn(); }), none);
}

TEST_F(FieldsChanged, ByQueriesAreNone) {
  EXPECT_EQ(by([&] {
              EXPECT_TRUE(manager->open());
              EXPECT_TRUE(manager->isOpened());
              EXPECT_EQ(manager->pripheral(), standard.peripheral);
              EXPECT_TRUE(Peer::p_isConnectedBLE(*manager));
              Peer::peripheralManagerDidUpdateState(*manager, std::make_shared<int>(5));
            }),
            none);
}

}  // namespace
}  // namespace kestrin::test
