// Links: how they are made, used and ended.
#include "vreader/ControllerTest.h"

namespace kestrin::vreader {
namespace {

using hci::Opcode;
using std::chrono::milliseconds;
using Packets = std::vector<std::string>;

TEST_F(ControllerTest, AConnectionIsMadeWhenTheDeviceIsHeard) {
  const auto device = addDevice();
  EXPECT_EQ(command(Opcode::leCreateConnection, createConnection(1)), Packets{"040f0400010d20"});
  EXPECT_EQ(packetsAfter(milliseconds(10)), Packets{"043e130100400000"
                                                    "0101000000dec0"
                                                    "180000002a0000"});
  ASSERT_NE(device->link, nullptr);
  EXPECT_EQ(device->link->handle(), 0x0040);
  EXPECT_EQ(device->link->supervisionTimeout(), milliseconds(420));
}

TEST_F(ControllerTest, AConnectionWaitsForADeviceThatIsAway) {
  const auto device = addDevice();
  device->advertising = false;
  command(Opcode::leCreateConnection, createConnection(1));
  EXPECT_TRUE(packetsAfter(milliseconds(5000)).empty());
  device->advertising = true;
  EXPECT_EQ(packetsAfter(milliseconds(100)).size(), 1U);
  EXPECT_NE(device->link, nullptr);
}

TEST_F(ControllerTest, AConnectionAttemptCanBeCancelledOnce) {
  addDevice()->advertising = false;
  command(Opcode::leCreateConnection, createConnection(1));
  EXPECT_EQ(command(Opcode::leCreateConnectionCancel), (Packets{"040e04010e2000",
                                                                "043e130102000000"
                                                                "0101000000dec0"
                                                                "00000000000000"}));
  EXPECT_EQ(command(Opcode::leCreateConnectionCancel), Packets{"040e04010e200c"});
}

TEST_F(ControllerTest, OneAttemptAtATimeAndOneLinkPerDevice) {
  addDevice();
  command(Opcode::leCreateConnection, createConnection(1));
  EXPECT_EQ(command(Opcode::leCreateConnection, createConnection(1)), Packets{"040f040c010d20"});
  packetsAfter(milliseconds(10));
  EXPECT_EQ(command(Opcode::leCreateConnection, createConnection(1)), Packets{"040f040b010d20"});
}

TEST_F(ControllerTest, ItKeepsNoMoreLinksThanItWasTold) {
  controller.setMostLinks(1);
  const auto first = addDevice();
  addDevice();
  command(Opcode::leCreateConnection, createConnection(1));
  packetsAfter(milliseconds(10));
  EXPECT_EQ(command(Opcode::leCreateConnection, createConnection(2)), Packets{"040f0409010d20"});
  first->link->drop(0x13);
  packetsAfter(milliseconds(0));
  EXPECT_EQ(command(Opcode::leCreateConnection, createConnection(2)), Packets{"040f0400010d20"});
}

TEST_F(ControllerTest, ConnectionParametersOutOfRangeAreRefused) {
  Bytes parameters = createConnection(1);
  parameters[13] = 0x05;  // An interval of 6.25 ms.
  EXPECT_EQ(command(Opcode::leCreateConnection, parameters), Packets{"040f0412010d20"});
  parameters = createConnection(1);
  parameters[19] = 0x09;  // A supervision timeout of 90 ms.
  EXPECT_EQ(command(Opcode::leCreateConnection, parameters), Packets{"040f0412010d20"});
}

TEST_F(ControllerTest, TheAcceptListCanChooseWhomToConnectTo) {
  addDevice();
  const auto second = addDevice();
  ByteWriter address;
  second->address().write(address);
  EXPECT_EQ(command(Opcode::leAddDeviceToFilterAcceptList, address.bytes()),
            Packets{"040e0401112000"});
  command(Opcode::leCreateConnection, createConnection(0, 1));
  packetsAfter(milliseconds(10));
  EXPECT_NE(second->link, nullptr);
}

TEST_F(ControllerTest, SeveralLinksHaveHandlesOfTheirOwn) {
  const auto first = addDevice();
  const auto second = addDevice();
  const auto third = addDevice();
  connect(1);
  connect(2);
  connect(3);
  EXPECT_EQ(first->link->handle(), 0x0040);
  EXPECT_EQ(second->link->handle(), 0x0041);
  EXPECT_EQ(third->link->handle(), 0x0042);
  second->link->drop(0x08);
  connect(2);
  EXPECT_EQ(second->link->handle(), 0x0041) << "a free handle is used again";
}

TEST_F(ControllerTest, DataGoesToTheDeviceOfItsHandleAndIsCredited) {
  const auto first = addDevice();
  const auto second = addDevice();
  connect(1);
  connect(2);
  sendAcl({0x41, 0x00, 0x07, 0x00, 0x03, 0x00, 0x04, 0x00, 0x0A, 0x03, 0x00});
  EXPECT_EQ(packets(), Packets{"041305"
                               "0141000100"});
  EXPECT_EQ(second->pdus, (Packets{"0a0300"}));
  EXPECT_TRUE(first->pdus.empty());
}

TEST_F(ControllerTest, ALongRequestInPiecesIsOneRequestAndEachPieceIsCredited) {
  const auto device = addDevice();
  connect(1);
  sendAcl({0x40, 0x00, 0x06, 0x00, 0x05, 0x00, 0x04, 0x00, 0x12, 0x0C});
  EXPECT_TRUE(device->pdus.empty());
  sendAcl({0x40, 0x10, 0x03, 0x00, 0x00, 0xBB, 0x01});
  EXPECT_EQ(device->pdus, (Packets{"120c00bb01"}));
  EXPECT_EQ(packets().size(), 2U);
}

TEST_F(ControllerTest, DataOnAHandleThatIsNotUpIsDropped) {
  sendAcl({0x40, 0x00, 0x05, 0x00, 0x01, 0x00, 0x04, 0x00, 0x0A});
  EXPECT_TRUE(packets().empty());
}

TEST_F(ControllerTest, ALongAnswerLeavesInPieces) {
  const auto device = addDevice();
  connect(1);
  device->link->send(Bytes(517, 0x0B));
  const auto sent = packets();
  ASSERT_EQ(sent.size(), 3U);
  EXPECT_EQ(sent[0].substr(0, 18), "024020fb0005020400");
  EXPECT_EQ(sent[1].substr(0, 10), "024010fb00");
}

TEST_F(ControllerTest, PairingAndChannelRequestsAreRefusedOnTheirChannels) {
  connect((addDevice(), 1));
  sendAcl(
      {0x40, 0x00, 0x0B, 0x00, 0x07, 0x00, 0x06, 0x00, 0x01, 0x03, 0x00, 0x01, 0x10, 0x07, 0x07});
  EXPECT_EQ(packets().back(),
            "0240200600"
            "02000600"
            "0505");
  sendAcl({0x40, 0x00, 0x08, 0x00, 0x04, 0x00, 0x05, 0x00, 0x14, 0x01, 0x00, 0x00});
  EXPECT_EQ(packets().back(),
            "0240200a00"
            "06000500"
            "010102000000");
}

TEST_F(ControllerTest, TheHostEndsALink) {
  const auto device = addDevice();
  connect(1);
  EXPECT_EQ(command(Opcode::disconnect, {0x40, 0x00, 0x13}),
            (Packets{"040f0400010604", "04050400400016"}));
  EXPECT_EQ(device->reasons, (std::vector<std::uint8_t>{0x16}));
  EXPECT_EQ(command(Opcode::disconnect, {0x40, 0x00, 0x13}), Packets{"040f0402010604"});
}

TEST_F(ControllerTest, TheDeviceEndsALinkWithItsReason) {
  const auto device = addDevice();
  connect(1);
  device->link->drop(0x13);
  EXPECT_EQ(packets(), Packets{"04050400400013"});
  EXPECT_EQ(device->reasons, (std::vector<std::uint8_t>{0x13}));
}

TEST_F(ControllerTest, ADeviceMayEndTheLinkInAnswerToWhatItReceives) {
  const auto device = addDevice();
  connect(1);
  device->onReceived = [&] { device->link->drop(0x13); };
  sendAcl({0x40, 0x00, 0x07, 0x00, 0x03, 0x00, 0x04, 0x00, 0x0A, 0x03, 0x00});
  EXPECT_EQ(packets(), (Packets{"0413050140000100", "04050400400013"}));
}

TEST_F(ControllerTest, AConnectedDeviceIsNotReportedAndItsEndMakesItNew) {
  const auto device = addDevice();
  connect(1);
  scan();
  EXPECT_TRUE(packetsAfter(milliseconds(300)).empty());
  device->link->drop(0x13);
  packets();
  EXPECT_EQ(packetsAfter(milliseconds(100)).size(), 2U);
}

TEST_F(ControllerTest, ResetEndsLinksForTheirDevicesAndTellsTheHostNothing) {
  const auto device = addDevice();
  connect(1);
  EXPECT_EQ(command(Opcode::reset).size(), 1U);
  EXPECT_EQ(device->reasons, (std::vector<std::uint8_t>{0x16}));
  EXPECT_EQ(device->link, nullptr);
}

TEST_F(ControllerTest, TellsAboutTheOtherSideOfALink) {
  addDevice();
  connect(1);
  EXPECT_EQ(command(Opcode::readRemoteVersionInformation, {0x40, 0x00}),
            (Packets{"040f0400011d04", "040c0800400008ffff0000"}));
  EXPECT_EQ(command(Opcode::leReadRemoteFeatures, {0x40, 0x00}), (Packets{"040f0400011620",
                                                                          "043e0c04004000"
                                                                          "0000000000000000"}));
  EXPECT_EQ(command(Opcode::readRssi, {0x40, 0x00}), Packets{"040e0701051400"
                                                             "4000ce"});
  EXPECT_EQ(command(Opcode::readTransmitPowerLevel, {0x40, 0x00, 0x00}), Packets{"040e07012d0c00"
                                                                                 "400004"});
}

TEST_F(ControllerTest, WhatADeviceSendsHasTheAirOnePacketAfterAnother) {
  // A PDU of 20 bytes and its L2CAP header: 34 bytes in all, and an acknowledgement of 10 bytes,
  // at 8 us a byte, and two gaps of 150 us.
  constexpr auto kAirTime = std::chrono::microseconds(652);
  const Bytes pdu(20, 0xAA);
  controller.setAir(Air::oneMegabit);
  const auto device = addDevice();
  connect(1);
  device->link->send(pdu);
  device->link->send(pdu);
  EXPECT_EQ(packets(), Packets());
  runLoop->runFor(kAirTime - std::chrono::microseconds(1));
  EXPECT_EQ(packets(), Packets());
  runLoop->runFor(std::chrono::microseconds(1));
  EXPECT_EQ(packets().size(), 1U);
  runLoop->runFor(kAirTime - std::chrono::microseconds(1));
  EXPECT_EQ(packets(), Packets());
  runLoop->runFor(std::chrono::microseconds(1));
  EXPECT_EQ(packets().size(), 1U);
  // The air has been free since.
  runLoop->runFor(milliseconds(5));
  device->link->send(Bytes{0x1B});
  device->link->send(pdu);
  runLoop->runFor(Link::airTime(5));
  EXPECT_EQ(packets(), Packets{"0240200500"
                               "01000400"
                               "1b"});
  runLoop->runFor(kAirTime);
  EXPECT_EQ(packets().size(), 1U);
}

TEST_F(ControllerTest, WhatIsOnTheAirWhenTheLinkGoesDownIsLost) {
  controller.setAir(Air::oneMegabit);
  const auto device = addDevice();
  connect(1);
  device->link->send(Bytes{0x1B});
  device->link->drop(0x08);
  EXPECT_EQ(packets(), Packets{"04050400400008"});
  EXPECT_EQ(packetsAfter(milliseconds(100)), Packets());
}

TEST_F(ControllerTest, ChangesTheParametersOfALink) {
  const auto device = addDevice();
  connect(1);
  EXPECT_EQ(command(Opcode::leConnectionUpdate,
                    {0x40, 0x00, 0x06, 0x00, 0x10, 0x00, 0x00, 0x00, 0x64, 0x00, 0, 0, 0, 0}),
            (Packets{"040f0400011320",
                     "043e0a03004000"
                     "060000006400"}));
  EXPECT_EQ(device->link->supervisionTimeout(), milliseconds(1000));
  EXPECT_EQ(command(Opcode::leSetDataLength, {0x40, 0x00, 0xFB, 0x00, 0x48, 0x08}),
            (Packets{"040e0601222000"
                     "4000",
                     "043e0b074000"
                     "fb004808fb004808"}));
}

TEST_F(ControllerTest, EveryQuestionAboutALinkThatIsNotUpIsRefused) {
  EXPECT_EQ(command(Opcode::readRemoteVersionInformation, {0x40, 0x00}), Packets{"040f0402011d04"});
  EXPECT_EQ(command(Opcode::leReadRemoteFeatures, {0x40, 0x00}), Packets{"040f0402011620"});
  EXPECT_EQ(command(Opcode::readRssi, {0x40, 0x00}), Packets{"040e0701051402"
                                                             "4000ce"});
  EXPECT_EQ(command(Opcode::leConnectionUpdate,
                    {0x40, 0x00, 0x06, 0x00, 0x10, 0x00, 0x00, 0x00, 0x64, 0x00, 0, 0, 0, 0}),
            Packets{"040f0402011320"});
  EXPECT_EQ(command(Opcode::leSetDataLength, {0x40, 0x00, 0xFB, 0x00, 0x48, 0x08}),
            Packets{"040e0601222002"
                    "4000"});
}

TEST(Controller, ItsEndEndsTheLinksOfItsDevices) {
  const auto runLoop = std::make_shared<MainRunLoop>(std::make_shared<simulated::VirtualClock>());
  const auto device = std::make_shared<FakeDevice>(1);
  {
    Controller controller(
        runLoop, {}, [](const Bytes&) {}, [](const std::string&) {});
    controller.addDevice(device);
    ByteWriter packet;
    packet.u8(0x01).u16(0x200D).u8(25).u16(0x60).u16(0x60).u8(0);
    device->address().write(packet);
    controller.receive(packet.u8(0).u16(24).u16(40).u16(0).u16(42).u16(0).u16(0).bytes());
    runLoop->runFor(milliseconds(10));
    ASSERT_NE(device->link, nullptr);
  }
  EXPECT_EQ(device->link, nullptr);
}

}  // namespace
}  // namespace kestrin::vreader
