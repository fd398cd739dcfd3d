// Cutting L2CAP frames into ACL packets and putting them together again.
#include <gtest/gtest.h>

#include "tools/vreader/L2cap.h"

namespace kestrin::vreader {
namespace {

using hci::PacketBoundary;

Bytes counted(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(i);
  return bytes;
}

AclPacket parsed(const Bytes& packet) {
  EXPECT_EQ(packet.at(0), 0x02) << "the packet type of ACL data";
  return AclPacket::parse(ByteView(packet).subspan(1)).value();
}

TEST(AclPacket, HandleAndBoundaryShareTheFirstTwoBytes) {
  const auto packet = AclPacket::parse(Bytes{0x40, 0x10, 0x02, 0x00, 0xAA, 0xBB});
  ASSERT_TRUE(packet);
  EXPECT_EQ(packet->handle, 0x040);
  EXPECT_EQ(packet->boundary, PacketBoundary::continuing);
  EXPECT_EQ(hex(packet->data), "aabb");
}

TEST(AclPacket, APacketWhoseLengthFieldLiesIsRefused) {
  EXPECT_FALSE(AclPacket::parse(Bytes{}));
  EXPECT_FALSE(AclPacket::parse(Bytes{0x40, 0x00, 0x02}));
  EXPECT_FALSE(AclPacket::parse(Bytes{0x40, 0x00, 0x02, 0x00, 0xAA}));
  EXPECT_FALSE(AclPacket::parse(Bytes{0x40, 0x00, 0x01, 0x00, 0xAA, 0xBB}));
}

TEST(AclPackets, AShortFrameTravelsInOnePacketWithBothHeaders) {
  const auto packets = aclPackets(0x040, L2capChannel::attributeProtocol, Bytes{0x13}, 251);
  ASSERT_EQ(packets.size(), 1U);
  EXPECT_EQ(hex(packets[0]),
            "0240200500"
            "01000400"
            "13");
}

TEST(AclPackets, ALongFrameIsCutAndOnlyTheFirstPacketIsAStart) {
  const auto packets = aclPackets(0x041, L2capChannel::attributeProtocol, counted(517), 251);
  ASSERT_EQ(packets.size(), 3U);
  EXPECT_EQ(parsed(packets[0]).boundary, PacketBoundary::firstFlushable);
  EXPECT_EQ(parsed(packets[1]).boundary, PacketBoundary::continuing);
  EXPECT_EQ(parsed(packets[2]).boundary, PacketBoundary::continuing);
  EXPECT_EQ(parsed(packets[0]).data.size(), 251U);
  EXPECT_EQ(parsed(packets[1]).data.size(), 251U);
  EXPECT_EQ(parsed(packets[2]).data.size(), 517U + 4U - 2U * 251U);
}

TEST(L2capReassembler, WhatWasCutComesTogetherForEverySizeOfPiece) {
  for (std::size_t largest = 1; largest <= 30; ++largest) {
    L2capReassembler reassembler;
    const Bytes payload = counted(23);
    std::optional<L2capFrame> frame;
    for (const Bytes& packet : aclPackets(0x040, L2capChannel::securityManager, payload, largest)) {
      ASSERT_FALSE(frame) << "complete before its last piece of " << largest;
      const AclPacket piece = parsed(packet);
      frame = reassembler.take(piece.boundary, piece.data);
    }
    ASSERT_TRUE(frame) << "pieces of " << largest;
    EXPECT_EQ(frame->channel, 0x0006);
    EXPECT_EQ(frame->payload, payload);
  }
}

TEST(L2capReassembler, AnEmptyFrameIsAFrame) {
  L2capReassembler reassembler;
  const auto frame =
      reassembler.take(PacketBoundary::firstNonFlushable, Bytes{0x00, 0x00, 0x04, 0x00});
  ASSERT_TRUE(frame);
  EXPECT_TRUE(frame->payload.empty());
}

TEST(L2capReassembler, AContinuationWithoutAStartIsDropped) {
  L2capReassembler reassembler;
  EXPECT_FALSE(reassembler.take(PacketBoundary::continuing, Bytes{0x01, 0x00, 0x04, 0x00, 0x0A}));
}

TEST(L2capReassembler, AStartInTheMiddleOfAFrameDropsThatFrame) {
  L2capReassembler reassembler;
  EXPECT_FALSE(
      reassembler.take(PacketBoundary::firstFlushable, Bytes{0x05, 0x00, 0x04, 0x00, 0x01}));
  const auto frame =
      reassembler.take(PacketBoundary::firstFlushable, Bytes{0x01, 0x00, 0x04, 0x00, 0x02});
  ASSERT_TRUE(frame);
  EXPECT_EQ(hex(frame->payload), "02");
}

TEST(L2capReassembler, MoreThanTheFrameTellsIsDroppedAsAWhole) {
  L2capReassembler reassembler;
  EXPECT_FALSE(
      reassembler.take(PacketBoundary::firstFlushable, Bytes{0x01, 0x00, 0x04, 0x00, 0x02, 0x03}));
  EXPECT_FALSE(reassembler.take(PacketBoundary::continuing, Bytes{0x04}))
      << "nothing of it is kept";
}

TEST(Signaling, ARequestIsRejectedUnderItsOwnIdentifier) {
  // LE Credit Based Connection Request, identifier 7.
  const auto answer = signalingAnswer(Bytes{0x14, 0x07, 0x02, 0x00, 0xAA, 0xBB});
  ASSERT_TRUE(answer);
  EXPECT_EQ(hex(*answer), "010702000000");
}

TEST(Signaling, ResponsesAndMalformedRequestsAreNotAnswered) {
  EXPECT_FALSE(signalingAnswer(Bytes{}));
  EXPECT_FALSE(signalingAnswer(Bytes{0x14, 0x07, 0x02, 0x00, 0xAA}));
  EXPECT_FALSE(signalingAnswer(Bytes{0x01, 0x07, 0x02, 0x00, 0x00, 0x00})) << "Command Reject";
  EXPECT_FALSE(signalingAnswer(Bytes{0x13, 0x07, 0x00, 0x00})) << "a response";
  EXPECT_FALSE(signalingAnswer(Bytes{0x16, 0x07, 0x00, 0x00})) << "flow control credits";
}

TEST(SecurityManager, PairingIsRefusedAndNothingElseAnswered) {
  const auto answer = securityManagerAnswer(Bytes{0x01, 0x03, 0x00, 0x01, 0x10, 0x07, 0x07});
  ASSERT_TRUE(answer);
  EXPECT_EQ(hex(*answer), "0505");
  EXPECT_FALSE(securityManagerAnswer(Bytes{}));
  EXPECT_FALSE(securityManagerAnswer(Bytes{0x05, 0x05}));
}

}  // namespace
}  // namespace kestrin::vreader
