// What the controller tells about itself, and scanning.
#include "vreader/ControllerTest.h"

#include <algorithm>

namespace kestrin::vreader {
namespace {

using hci::Opcode;
using std::chrono::milliseconds;
using Packets = std::vector<std::string>;

TEST_F(ControllerTest, TellsItsVersionAddressAndBuffers) {
  EXPECT_EQ(command(Opcode::readLocalVersionInformation), Packets{"040e0c01011000080000"
                                                                  "08ffff0000"});
  EXPECT_EQ(command(Opcode::readBdAddr), Packets{"040e0a01091000"
                                                 "00000000dec0"});
  EXPECT_EQ(command(Opcode::leReadBufferSize), Packets{"040e0701022000"
                                                       "fb0010"});
  EXPECT_EQ(command(Opcode::readBufferSize), Packets{"040e0b01051000"
                                                     "00000000000000"})
      << "all buffers are those for LE";
}

TEST_F(ControllerTest, IsAnLeOnlyControllerWithTheDataLengthExtension) {
  EXPECT_EQ(command(Opcode::readLocalSupportedFeatures), Packets{"040e0c01031000"
                                                                 "0000000060000000"});
  EXPECT_EQ(command(Opcode::leReadLocalSupportedFeatures), Packets{"040e0c01032000"
                                                                   "2000000000000000"});
  EXPECT_EQ(command(Opcode::leReadMaximumDataLength), Packets{"040e0c012f2000"
                                                              "fb004808fb004808"});
  EXPECT_EQ(command(Opcode::leReadSuggestedDefaultDataLength), Packets{"040e0801232000"
                                                                       "fb004808"});
}

TEST_F(ControllerTest, TheMaskOfSupportedCommandsNamesWhatItCarriesOut) {
  const auto packets = command(Opcode::readLocalSupportedCommands);
  ASSERT_EQ(packets.size(), 1U);
  const std::string mask = packets[0].substr(14);
  ASSERT_EQ(mask.size(), 128U);
  const auto octet = [&](std::size_t index) { return mask.substr(2 * index, 2); };
  EXPECT_EQ(octet(0), "20") << "Disconnect";
  EXPECT_EQ(octet(5), "c0") << "Set Event Mask, Reset";
  EXPECT_EQ(octet(14), "a8") << "version, features, buffer size";
  EXPECT_EQ(octet(26), "ff") << "scanning, connections, accept list";
  EXPECT_EQ(octet(28), "08") << "supported states, and no encryption";
  EXPECT_EQ(octet(63), "00");
}

TEST_F(ControllerTest, AcceptsMasksAndAdvertisingOfTheHost) {
  EXPECT_EQ(command(Opcode::setEventMask, Bytes(8, 0xFF)), Packets{"040e0401010c00"});
  EXPECT_EQ(command(Opcode::leSetEventMask, Bytes(8, 0xFF)), Packets{"040e0401012000"});
  EXPECT_EQ(command(Opcode::leSetAdvertisingData, Bytes(32)), Packets{"040e0401082000"});
}

TEST_F(ControllerTest, AnUnknownCommandIsRefusedAndTold) {
  EXPECT_EQ(command(static_cast<Opcode>(0x2017), Bytes(32)), Packets{"040f0401011720"});
  EXPECT_EQ(events, (std::vector<std::string>{"UNKNOWN-COMMAND 0x2017"}));
}

TEST_F(ControllerTest, ACommandOfTheWrongLengthIsRefused) {
  EXPECT_EQ(command(Opcode::setEventMask, Bytes(7)), Packets{"040e0401010c12"});
  EXPECT_EQ(command(Opcode::leCreateConnection, Bytes(24)), Packets{"040f0412010d20"});
}

TEST_F(ControllerTest, PacketsThatAreCutShortOrOfAnotherKindAreDropped) {
  for (const Bytes& packet : std::vector<Bytes>{{},
                                                {0x01},
                                                {0x01, 0x03},
                                                {0x01, 0x03, 0x0C},
                                                {0x01, 0x03, 0x0C, 0x01},
                                                {0x01, 0x03, 0x0C, 0x00, 0x00},
                                                {0x04, 0x0E, 0x00},
                                                {0x7F, 0x00}}) {
    controller.receive(packet);
    EXPECT_TRUE(packets().empty()) << hex(packet);
  }
}

TEST_F(ControllerTest, AnActiveScanReportsAdvertisementAndScanResponse) {
  const auto device = addDevice();
  device->scanResponse = {0x03, 0x09, 'K', 'V'};
  scan();
  EXPECT_EQ(packetsAfter(milliseconds(10)), (Packets{"043e0f0201000101000000dec0"
                                                     "03020106"
                                                     "ce",
                                                     "043e100201040101000000dec0"
                                                     "0403094b56"
                                                     "ce"}));
  EXPECT_EQ(events, (std::vector<std::string>{"SCAN active"}));
}

TEST_F(ControllerTest, APassiveScanReportsAdvertisementsOnly) {
  addDevice();
  command(Opcode::leSetScanParameters, {0x00, 0x10, 0x00, 0x10, 0x00, 0x00, 0x00});
  command(Opcode::leSetScanEnable, {0x01, 0x01});
  EXPECT_EQ(packetsAfter(milliseconds(10)).size(), 1U);
  EXPECT_EQ(events, (std::vector<std::string>{"SCAN passive"}));
}

TEST_F(ControllerTest, WithoutFilterEveryAdvertisementIsReported) {
  addDevice();
  scan(0);
  EXPECT_EQ(packetsAfter(milliseconds(410)).size(), 5U * 2U);
}

TEST_F(ControllerTest, DuplicatesAreReportedOnceASecond) {
  addDevice();
  scan();
  EXPECT_EQ(packetsAfter(milliseconds(800)).size(), 2U);
  EXPECT_EQ(packetsAfter(milliseconds(1000)).size(), 2U);
}

TEST_F(ControllerTest, WhatBeginsToAdvertiseAnewIsReportedAtOnce) {
  const auto device = addDevice();
  scan();
  packetsAfter(milliseconds(10));
  device->advertisement = {0x02, 0x01, 0x04};
  EXPECT_EQ(packetsAfter(milliseconds(100)).size(), 2U) << "other data is not a duplicate";
  controller.advertisingChanged(*device);
  EXPECT_EQ(packetsAfter(milliseconds(100)).size(), 2U);
}

TEST_F(ControllerTest, AScanThatIsSwitchedOffReportsNothingMore) {
  addDevice();
  scan(0);
  packetsAfter(milliseconds(10));
  command(Opcode::leSetScanEnable, {0x00, 0x00});
  EXPECT_TRUE(packetsAfter(milliseconds(1000)).empty());
}

TEST_F(ControllerTest, DevicesThatDoNotAdvertiseAreNotReported) {
  addDevice()->advertising = false;
  scan();
  EXPECT_TRUE(packetsAfter(milliseconds(500)).empty());
}

TEST_F(ControllerTest, ResetEndsTheScan) {
  addDevice();
  scan(0);
  EXPECT_EQ(command(Opcode::reset), Packets{"040e0401030c00"});
  EXPECT_TRUE(packetsAfter(milliseconds(500)).empty());
}

}  // namespace
}  // namespace kestrin::vreader
