// Outgoing writes: slices, pauses and the transmit characteristic's properties.
#include <algorithm>
#include <sstream>
#include <thread>

#include "link/LinkTest.h"

namespace kestrin::test {
namespace {

/// Bytes 00, 01, 02 and so on.
NSData counting(std::size_t length) {
  std::vector<std::uint8_t> bytes(length);
  for (std::size_t i = 0; i < length; ++i) bytes[i] = static_cast<std::uint8_t>(i);
  return NSData(bytes);
}

class Writing : public LinkTest {
 protected:
  /// A plugged-in standard reader whose transmit characteristic has these properties.
  Reader plugInWith(CBCharacteristicProperties properties) {
    Reader reader = standardReader("R7ZTM", properties);
    plugIn(reader);
    return reader;
  }
  /// The lengths of the slices written and the pauses between them, for example `20 pause 1`.
  std::string rhythm() {
    std::string text;
    std::istringstream lines(platform.take());
    for (std::string line; std::getline(lines, line);) {
      std::string word;
      if (line == "sleep 0.05") word = "pause";
      if (const auto at = line.find("writeValue <"); at != std::string::npos) {
        const auto digits = line.substr(at + 12, line.find('>') - at - 12);
        word = std::to_string(std::ranges::count_if(digits, [](char c) { return c != ' '; }) / 2);
      }
      if (!word.empty()) text += (text.empty() ? "" : " ") + word;
    }
    return text;
  }
};

TEST_F(Writing, CutsEveryFrameIntoFullSlicesAndARemainder) {
  plugInWith(0x04);
  const std::pair<std::size_t, std::string> kTable[] = {
      {0, "0"},
      {1, "1"},
      {9, "9"},
      {19, "19"},
      {20, "20 pause 0"},
      {21, "20 pause 1"},
      {39, "20 pause 19"},
      {40, "20 pause 20 pause 0"},
      {41, "20 pause 20 pause 1"},
      {45, "20 pause 20 pause 5"},
      {60, "20 pause 20 pause 20 pause 0"},
      {101, "20 pause 20 pause 20 pause 20 pause 20 pause 1"},
  };
  for (const auto& [length, expected] : kTable) {
    EXPECT_TRUE(manager->send(counting(length)));
    EXPECT_EQ(rhythm(), expected) << length;
  }
}

TEST_F(Writing, WritesLogsAndPausesInThisOrderWithRealBytes) {
  plugInWith(0x04);
  EXPECT_TRUE(manager->send(counting(45)));
  EXPECT_EQ(platform.takeTimed(), R"(
peripheral "R7ZTM" writeValue <00010203 04050607 08090a0b 0c0d0e0f 10111213> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <00010203 04050607 08090a0b 0c0d0e0f 10111213>"
sleep 0.05
at 2.05 s
peripheral "R7ZTM" writeValue <14151617 18191a1b 1c1d1e1f 20212223 24252627> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <14151617 18191a1b 1c1d1e1f 20212223 24252627>"
sleep 0.05
at 2.1 s
peripheral "R7ZTM" writeValue <28292a2b 2c> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <28292a2b 2c>"
)");
}

TEST_F(Writing, EndsAFrameOfFullSlicesWithAWriteOfNothing) {
  plugInWith(0x04);
  EXPECT_TRUE(manager->send(counting(20)));
  EXPECT_EQ(platform.takeTimed(), R"(
peripheral "R7ZTM" writeValue <00010203 04050607 08090a0b 0c0d0e0f 10111213> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <00010203 04050607 08090a0b 0c0d0e0f 10111213>"
sleep 0.05
at 2.05 s
peripheral "R7ZTM" writeValue <> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <>"
)");
}

TEST_F(Writing, OfAnAbsentFrameIsOneWriteOfAnAbsentValue) {
  plugInWith(0x08);
  EXPECT_TRUE(manager->send(std::nullopt));
  EXPECT_EQ(platform.take(), R"~(
peripheral "R7ZTM" setNotifyValue true for BA821001-3B5B-4654-85FE-E998B123ADEA
peripheral "R7ZTM" writeValue (absent) to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] (null)"
)~");
}

TEST_F(Writing, WithoutResponseOfferedIsStillWithResponseAndAsksForNoNotifications) {
  for (const CBCharacteristicProperties properties : {0x04U, 0x0CU, 0x14U, 0x1EU, 0xFFU}) {
    plugInWith(properties);
    EXPECT_TRUE(manager->writeRawData(NSData{0xAA}));
    EXPECT_EQ(platform.take(), R"(
peripheral "R7ZTM" writeValue <aa> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <aa>"
)") << properties;
  }
}

TEST_F(Writing, WithOnlyTheWriteBitAsksForNotificationsBeforeEverySlice) {
  for (const CBCharacteristicProperties properties : {0x08U, 0x18U, 0x0AU, 0xFBU}) {
    plugInWith(properties);
    EXPECT_TRUE(manager->send(counting(21)));
    EXPECT_EQ(platform.take(), R"(
peripheral "R7ZTM" setNotifyValue true for BA821001-3B5B-4654-85FE-E998B123ADEA
peripheral "R7ZTM" writeValue <00010203 04050607 08090a0b 0c0d0e0f 10111213> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <00010203 04050607 08090a0b 0c0d0e0f 10111213>"
sleep 0.05
peripheral "R7ZTM" setNotifyValue true for BA821001-3B5B-4654-85FE-E998B123ADEA
peripheral "R7ZTM" writeValue <14> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <14>"
)") << properties;
  }
}

TEST_F(Writing, WithNoWriteBitLogsTheWholeMaskForEachSliceAndStillPauses) {
  plugInWith(0x12);
  EXPECT_FALSE(manager->send(counting(45)));
  EXPECT_EQ(platform.takeTimed(), R"(
log "No write property on TX characteristic, 18."
sleep 0.05
at 2.05 s
log "No write property on TX characteristic, 18."
sleep 0.05
at 2.1 s
log "No write property on TX characteristic, 18."
)");
}

TEST_F(Writing, PrintsTheMaskAsASignedDecimalNumber) {
  for (const auto& [properties, text] :
       std::initializer_list<std::pair<CBCharacteristicProperties, std::string>>{
           {0x00, "0"}, {0x02, "2"}, {0xF3, "243"}, {0x100, "256"}, {~0xCULL, "-13"}}) {
    plugInWith(properties);
    EXPECT_FALSE(manager->writeRawData(NSData{0xAA}));
    EXPECT_EQ(platform.take(), "\nlog \"No write property on TX characteristic, " + text + ".\"\n");
  }
}

TEST_F(Writing, WithoutATransmitCharacteristicLogsZero) {
  EXPECT_FALSE(manager->send(counting(20)));
  EXPECT_FALSE(manager->send(NSData{}));
  EXPECT_FALSE(manager->send(std::nullopt));
  EXPECT_FALSE(manager->writeRawData(NSData{0xAA}));
  EXPECT_EQ(platform.take(), R"(
log "No write property on TX characteristic, 0."
sleep 0.05
log "No write property on TX characteristic, 0."
log "No write property on TX characteristic, 0."
log "No write property on TX characteristic, 0."
log "No write property on TX characteristic, 0."
)");
}

TEST_F(Writing, AnEmptyFrameIsOneEmptyWriteWithoutAPause) {
  plugInWith(0x0C);
  EXPECT_TRUE(manager->send(NSData{}));
  EXPECT_EQ(platform.take(), R"(
peripheral "R7ZTM" writeValue <> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <>"
)");
}

TEST_F(Writing, BySendAndBySendPowerIsTheSame) {
  for (const CBCharacteristicProperties properties : {0x04U, 0x08U, 0x0CU, 0x12U}) {
    plugInWith(properties);
    // Once without a link.
    Peer::isConnected(*manager) = properties != 0x0CU;
    for (const std::optional<NSData>& frame :
         {std::optional(counting(0)), std::optional(counting(9)), std::optional(counting(20)),
          std::optional(counting(45)), std::optional<NSData>()}) {
      const bool sent = manager->send(frame);
      const std::string transcript = platform.take();
      EXPECT_EQ(manager->sendPower(frame), sent);
      EXPECT_EQ(platform.take(), transcript);
      EXPECT_EQ(Peer::p_sendDataToBLE(*manager, frame), sent);
      EXPECT_EQ(platform.take(), transcript);
      EXPECT_NE(transcript, kNothing);
    }
  }
}

TEST_F(Writing, AnswersForTheLastSliceOnly) {
  const Reader reader = plugInWith(0x04);
  // Three reads per slice that cannot be written: two tests and the log line.
  reader.tx->propertyReads.set({0, 0, 0, 0, 0, 0, 0x04});
  EXPECT_TRUE(manager->send(counting(41)));
  EXPECT_EQ(platform.take(), R"(
log "No write property on TX characteristic, 0."
sleep 0.05
log "No write property on TX characteristic, 0."
sleep 0.05
peripheral "R7ZTM" writeValue <28> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <28>"
)");
  reader.tx->propertyReads.set({0x04, 0x04, 0x10});
  EXPECT_FALSE(manager->send(counting(41)));
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("log"), R"(
log "[TX BLE] <00010203 04050607 08090a0b 0c0d0e0f 10111213>"
log "[TX BLE] <14151617 18191a1b 1c1d1e1f 20212223 24252627>"
log "No write property on TX characteristic, 16."
)");
}

TEST_F(Writing, ReadsTheMaskAgainForEachTestAndForTheLogLine) {
  const Reader reader = plugInWith(0x04);
  reader.tx->propertyReads.set({0x08, 0x04, 0x02});
  EXPECT_FALSE(manager->writeRawData(NSData{0xAA}));
  EXPECT_EQ(platform.take(), "\nlog \"No write property on TX characteristic, 2.\"\n");
  reader.tx->propertyReads.set({0x00, 0x08});
  EXPECT_TRUE(manager->writeRawData(NSData{0xAA}));
  EXPECT_EQ(platform.take(), R"(
peripheral "R7ZTM" setNotifyValue true for BA821001-3B5B-4654-85FE-E998B123ADEA
peripheral "R7ZTM" writeValue <aa> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <aa>"
)");
}

TEST_F(Writing, OfARawSliceIsNotCut) {
  plugInWith(0x04);
  EXPECT_TRUE(manager->writeRawData(counting(25)));
  EXPECT_EQ(rhythm(), "25");
  EXPECT_TRUE(manager->writeRawData(std::nullopt));
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("peripheral"), R"(
peripheral "R7ZTM" writeValue (absent) to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
)");
}

TEST_F(Writing, DoesNotAskWhetherThereIsALink) {
  const Reader reader = plugInWith(0x04);
  platform.didDisconnect(reader.peripheral);
  platform.take();
  EXPECT_FALSE(manager->open());
  EXPECT_TRUE(manager->send(NSData{0xAA}));
  EXPECT_EQ(platform.take(), R"(
peripheral "R7ZTM" writeValue <aa> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <aa>"
)");
}

TEST_F(Writing, GoesToTheStoredReaderWithTheStoredCharacteristic) {
  plugInWith(0x08);
  scan();
  platform.didDiscover(platform.peripheral("KVR-2"));
  platform.take();
  EXPECT_TRUE(manager->send(NSData{0xAA}));
  EXPECT_EQ(platform.take(), R"(
peripheral "KVR-2" setNotifyValue true for BA821001-3B5B-4654-85FE-E998B123ADEA
peripheral "KVR-2" writeValue <aa> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <aa>"
)");
}

TEST_F(Writing, WithoutAStoredReaderOnlyLogsAndAnswersTrue) {
  for (const CBCharacteristicProperties properties : {0x04U, 0x08U}) {
    plugInWith(properties);
    manager->connectBLE(nullptr);
    platform.take();
    EXPECT_TRUE(manager->send(NSData{0xAA}));
    EXPECT_EQ(platform.take(), "\nlog \"[TX BLE] <aa>\"\n");
  }
}

TEST_F(Writing, ChangesNoField) {
  const Reader reader = plugInWith(0x0C);
  manager->send(counting(45));
  EXPECT_TRUE(manager->open());
  EXPECT_EQ(manager->pripheral(), reader.peripheral);
  EXPECT_EQ(Peer::txCharacteristic(*manager), reader.tx);
  EXPECT_EQ(Peer::rxCharacteristic(*manager), reader.rx);
  EXPECT_FALSE(Peer::_mutableReceivedData(*manager).has_value());
}

TEST_F(Writing, CarriesTheFrameWithoutLookingAtIt) {
  plugInWith(0x04);
  EXPECT_TRUE(manager->send(NSData{0x00, 0xFF, 0xBB}));
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("log"), "\nlog \"[TX BLE] <00ffbb>\"\n");
}

TEST_F(Writing, HandlesNoEventWhileItPauses) {
  const Reader reader = plugInWith(0x04);
  platform.play([&] {
    platform.platform().mainRunLoop.lock()->post([&] { platform.transcript().add("an event"); });
    manager->send(counting(21));
  });
  platform.runOneTurn();
  const std::string transcript = platform.take();
  EXPECT_TRUE(transcript.ends_with("log \"[TX BLE] <14>\"\nan event\n")) << transcript;
}

TEST_F(Writing, RunsWhollyOnTheThreadThatAsksForIt) {
  plugInWith(0x08);
  std::vector<std::thread::id> ranOn;
  platform.onRequest = [&](const std::string&) { ranOn.push_back(std::this_thread::get_id()); };
  platform.onLog = platform.onRequest;
  bool sent = false;
  std::thread sender([&] { sent = manager->send(counting(21)); });
  const std::vector<std::thread::id> expected(6, sender.get_id());
  sender.join();
  EXPECT_TRUE(sent);
  // A request for notifications, a write and a log line for each of the two slices.
  EXPECT_EQ(ranOn, expected);
  EXPECT_EQ(rhythm(), "20 pause 1");
}

}  // namespace
}  // namespace kestrin::test
