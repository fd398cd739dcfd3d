// Incoming values: which go to the log, which raw to the receiver, which to the assembler.
#include "link/LinkTest.h"

namespace kestrin::test {
namespace {

const NSData kPart{0xBB, 0x01, 0x03};
constexpr char kDelivered[] = R"(log "[RX BLE] <bb010300 01b17e20 37>"
dispatch_sync priority 2
dispatch_sync priority 2
receiver dispatchRcpFrmReader <bb010300 01b17e20 37>
)";

class ValueEvent : public LinkTest {
 protected:
  ValueEvent() {
    plugIn(standard);
    manager->connectBLE(kvr.peripheral);
    platform.take();
  }
  std::optional<NSData> buffered() { return bufferedIn(*manager); }
  /// What a value event leads to, without the line of the event itself.
  std::string take() {
    const std::string transcript = platform.take();
    return transcript.substr(transcript.find('\n', 1));
  }
  const Reader standard = standardReader();
  const Reader kvr = kvrReader();
};
class NotificationStateEvent : public ValueEvent {};

TEST_F(ValueEvent, WithAnErrorIsOneLineWithALeadingBlank) {
  platform.didUpdateValue(standard.peripheral, standard.rx, std::nullopt, kError);
  EXPECT_EQ(take(), "\nlog \" [ERROR] Unlikely Error\"\n");
}

TEST_F(ValueEvent, WithAnErrorDropsItsValueOfWhateverKind) {
  platform.didUpdateValue(standard.peripheral, standard.rx, kFrame, kError);
  EXPECT_EQ(take(), "\nlog \" [ERROR] Unlikely Error\"\n");
  platform.didUpdateValue(kvr.peripheral, kvr.rx, kFrame, kError);
  EXPECT_EQ(take(), "\nlog \" [ERROR] Unlikely Error\"\n");
  platform.didUpdateValue(kvr.peripheral, characteristicOf("2A29"), NSData{'A'}, kError);
  EXPECT_EQ(take(), "\nlog \" [ERROR] Unlikely Error\"\n");
  EXPECT_EQ(buffered(), std::nullopt);
}

TEST_F(ValueEvent, OfTheManufacturerNameIsLoggedForEitherFamilyAndGoesNowhereElse) {
  const auto name = characteristicOf("2A29");
  const NSData text{'N', 'O', 'V', 'A', ' ', 0x7F};
  platform.didUpdateValue(kvr.peripheral, name, text);
  EXPECT_EQ(take(), "\nlog \"BLE_D5_NOVA_Manufacturer_Name : NOVA \x7F\"\n");
  platform.didUpdateValue(standard.peripheral, name, kPart);
  EXPECT_EQ(take(), "\nlog \"BLE_D5_NOVA_Manufacturer_Name : (null)\"\n");
  EXPECT_EQ(buffered(), std::nullopt);
}

TEST_F(ValueEvent, OfAManufacturerNameInIts128BitFormIsTheSame) {
  platform.didUpdateValue(kvr.peripheral, characteristicOf("00002A29-0000-1000-8000-00805F9B34FB"),
                          NSData{'A'});
  EXPECT_EQ(take(), "\nlog \"BLE_D5_NOVA_Manufacturer_Name : A\"\n");
}

TEST_F(ValueEvent, OfACharacteristicThatOnlyBeginsLikeTheManufacturerNameIsAValueLikeAnyOther) {
  const auto near = characteristicOf("2A290000-3B5B-4654-85FE-E998B123ADEA");
  platform.didUpdateValue(kvr.peripheral, near, kPart);
  EXPECT_EQ(take(), "\nreceiver dispatchRcpFrmReader <bb0103>\n");
  platform.didUpdateValue(standard.peripheral, near, kFrame);
  EXPECT_EQ(take(), std::string("\n") + kDelivered);
}

TEST_F(ValueEvent, OfAManufacturerNameThatIsNoAsciiOrAbsentPrintsAsAbsent) {
  const auto name = characteristicOf("2A29");
  platform.didUpdateValue(kvr.peripheral, name, NSData{'A', 0x80});
  EXPECT_EQ(take(), "\nlog \"BLE_D5_NOVA_Manufacturer_Name : (null)\"\n");
  platform.didUpdateValue(kvr.peripheral, name, std::nullopt);
  EXPECT_EQ(take(), "\nlog \"BLE_D5_NOVA_Manufacturer_Name : (null)\"\n");
  platform.didUpdateValue(kvr.peripheral, name, NSData{});
  EXPECT_EQ(take(), "\nlog \"BLE_D5_NOVA_Manufacturer_Name : \"\n");
}

TEST_F(ValueEvent, OfAKvrReaderGoesRawToTheReceiverWhateverItIs) {
  for (const auto& characteristic : {kvr.rx, kvr.tx, characteristicOf("2A27")}) {
    platform.didUpdateValue(kvr.peripheral, characteristic, kPart);
    EXPECT_EQ(take(), "\nreceiver dispatchRcpFrmReader <bb0103>\n");
    platform.didUpdateValue(kvr.peripheral, characteristic, NSData{});
    EXPECT_EQ(take(), "\nreceiver dispatchRcpFrmReader <>\n");
  }
  platform.didUpdateValue(kvr.peripheral, kvr.rx, kFrame);
  EXPECT_EQ(take(), "\nreceiver dispatchRcpFrmReader <bb010300 01b17e20 37>\n");
  EXPECT_EQ(buffered(), std::nullopt);
}

TEST_F(ValueEvent, OfAKvrReaderReachesTheReceiverAlsoWhenAbsent) {
  platform.didUpdateValue(kvr.peripheral, kvr.rx, std::nullopt);
  EXPECT_EQ(take(), "\nreceiver dispatchRcpFrmReader (absent)\n");
}

TEST_F(ValueEvent, OfAKvrReaderIsDroppedSilentlyWithoutAListeningReceiver) {
  struct DeafToFrames final : RcpReceiver {
    void plugChangedStatus(bool) noexcept override {}
  };
  const auto deaf = std::make_shared<DeafToFrames>();
  manager->setRcpReceiverDelegate(deaf);
  platform.didUpdateValue(kvr.peripheral, kvr.rx, kFrame);
  EXPECT_EQ(take(), kNothing);
  manager->setRcpReceiverDelegate(nullptr);
  platform.didUpdateValue(kvr.peripheral, kvr.rx, kFrame);
  EXPECT_EQ(take(), kNothing);
  EXPECT_EQ(buffered(), std::nullopt);
}

TEST_F(ValueEvent, IsRoutedByTheNameOfTheDeliveringPeripheral) {
  // The stored reader is one of the KVR-Q62T family.
  platform.didUpdateValue(standard.peripheral, kvr.rx, kFrame);
  EXPECT_EQ(take(), std::string("\n") + kDelivered);
  manager->connectBLE(standard.peripheral);
  platform.take();
  platform.didUpdateValue(kvr.peripheral, standard.rx, kFrame);
  EXPECT_EQ(take(), "\nreceiver dispatchRcpFrmReader <bb010300 01b17e20 37>\n");
}

TEST_F(ValueEvent, GoesToTheAssemblerForEveryNameThatDoesNotBeginSo) {
  for (const std::optional<std::string>& name :
       {std::optional<std::string>("KVR-Q62"), std::optional<std::string>("kvr-q62t"),
        std::optional<std::string>("xKVR-Q62T"), std::optional<std::string>(""),
        std::optional<std::string>()}) {
    standard.peripheral->nameReads.set({name});
    platform.didUpdateValue(standard.peripheral, standard.rx, kFrame);
    EXPECT_EQ(take(), std::string("\n") + kDelivered) << name.value_or("(no name)");
  }
}

TEST_F(ValueEvent, OfAStandardReaderGoesToTheAssemblerWhicheverCharacteristicItIs) {
  std::size_t length = 0;
  for (const auto& characteristic :
       {standard.rx, standard.tx, characteristicOf("2A27"), characteristicOf("FFF1")}) {
    platform.didUpdateValue(standard.peripheral, characteristic, NSData{0x01, 0x02});
    EXPECT_EQ(take(), kNothing);
    length += 2;
    EXPECT_EQ(buffered()->length(), length);
  }
}

TEST_F(ValueEvent, OfAStandardReaderIsReassembled) {
  platform.didUpdateValue(standard.peripheral, standard.rx, kPart);
  EXPECT_EQ(take(), kNothing);
  EXPECT_EQ(buffered(), kPart);
  platform.didUpdateValue(standard.peripheral, standard.rx, kFrame.subdataWithRange({3, 6}));
  EXPECT_EQ(take(), std::string("\n") + kDelivered);
  EXPECT_EQ(buffered(), NSData{});
}

TEST_F(ValueEvent, OfAStandardReaderWithoutAValueIsNothing) {
  platform.didUpdateValue(standard.peripheral, standard.rx, std::nullopt);
  EXPECT_EQ(take(), kNothing);
  EXPECT_EQ(buffered(), std::nullopt);
}

TEST_F(ValueEvent, OfAStandardReaderWithAnEmptyValueRunsAParse) {
  // A frame that is followed by another byte is kept, and delivered again by each parse.
  platform.didUpdateValue(standard.peripheral, standard.rx,
                          NSData{0xBB, 0x01, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x20, 0x37, 0x00});
  EXPECT_EQ(take(), std::string("\n") + kDelivered);
  platform.didUpdateValue(standard.peripheral, standard.rx, NSData{});
  EXPECT_EQ(take(), std::string("\n") + kDelivered);
}

TEST_F(ValueEvent, DoesNotAskWhetherThereIsALink) {
  platform.didDisconnect(standard.peripheral);
  platform.take();
  platform.didUpdateValue(standard.peripheral, standard.rx, kFrame);
  EXPECT_EQ(take(), std::string("\n") + kDelivered);
  platform.didUpdateValue(kvr.peripheral, kvr.rx, kPart);
  EXPECT_EQ(take(), "\nreceiver dispatchRcpFrmReader <bb0103>\n");
}

TEST_F(NotificationStateEvent, WithoutAnErrorAndAValueIsNothing) {
  platform.didUpdateNotificationState(standard.peripheral, standard.rx);
  EXPECT_EQ(take(), kNothing);
  EXPECT_EQ(buffered(), std::nullopt);
}

TEST_F(NotificationStateEvent, WithAnErrorIsOneLineWithAColonAndNoLeadingBlank) {
  platform.didUpdateNotificationState(standard.peripheral, standard.rx, kError);
  EXPECT_EQ(take(), "\nlog \"[ERROR]: Unlikely Error\"\n");
}

TEST_F(NotificationStateEvent, WithAnErrorStillHandsItsValueToTheAssembler) {
  standard.rx->shownValue = kFrame;
  platform.didUpdateNotificationState(standard.peripheral, standard.rx, kError);
  EXPECT_EQ(take(), std::string("\nlog \"[ERROR]: Unlikely Error\"\n") + kDelivered);
}

TEST_F(NotificationStateEvent, HandsTheValueOfAnyCharacteristicOfAnyFamilyToTheAssembler) {
  for (const auto& characteristic : {kvr.rx, kvr.tx, standard.rx, characteristicOf("2A29")}) {
    characteristic->shownValue = kFrame;
    for (const auto& peripheral : {kvr.peripheral, standard.peripheral}) {
      platform.didUpdateNotificationState(peripheral, characteristic);
      EXPECT_EQ(take(), std::string("\n") + kDelivered);
    }
  }
}

TEST_F(NotificationStateEvent, OfAKvrReaderLeavesItsBytesInTheReceiveBuffer) {
  kvr.rx->shownValue = kPart;
  platform.didUpdateNotificationState(kvr.peripheral, kvr.rx, kError);
  EXPECT_EQ(take(), "\nlog \"[ERROR]: Unlikely Error\"\n");
  EXPECT_EQ(buffered(), kPart);
  // What the next link of a standard reader brings comes behind them.
  platform.didUpdateValue(standard.peripheral, standard.rx, kFrame.subdataWithRange({3, 6}));
  EXPECT_EQ(take(), std::string("\n") + kDelivered);
}

TEST_F(NotificationStateEvent, WithAnEmptyValueRunsAParse) {
  standard.rx->shownValue = NSData{0xBB, 0x01, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x20, 0x37, 0x00};
  platform.didUpdateNotificationState(standard.peripheral, standard.rx);
  EXPECT_EQ(take(), std::string("\n") + kDelivered);
  standard.rx->shownValue = NSData{};
  platform.didUpdateNotificationState(standard.peripheral, standard.rx);
  EXPECT_EQ(take(), std::string("\n") + kDelivered);
}

TEST_F(NotificationStateEvent, DoesNotAskWhetherThereIsALink) {
  platform.didDisconnect(standard.peripheral);
  platform.take();
  standard.rx->shownValue = kFrame;
  platform.didUpdateNotificationState(standard.peripheral, standard.rx);
  EXPECT_EQ(take(), std::string("\n") + kDelivered);
}

TEST_F(NotificationStateEvent, ReportsNoStatusAndAsksForNothing) {
  kvr.rx->shownValue.reset();
  platform.didUpdateNotificationState(kvr.peripheral, kvr.rx);
  platform.run(10.0);
  EXPECT_EQ(take(), kNothing);
}

}  // namespace
}  // namespace kestrin::test
