// The CRC step and what a receiver makes of it.
#include <gtest/gtest.h>

#include <array>
#include <string_view>

#include "KestrinBLESDK/RcpFrame.h"
#include "KestrinBLESDK/rcp/FrameLayout.h"
#include "support/KestrinBleMgrTestPeer.h"
#include "support/ReferenceFrame.h"

namespace kestrin::test {
namespace {

std::uint16_t crcByManager(std::span<const std::uint8_t> bytes) {
  std::uint16_t acc = 0xFFFF;
  for (const std::uint8_t byte : bytes)
    acc = KestrinBleMgrTestPeer::getCrcPolynomial_acc(byte, acc);
  return acc;
}

constexpr std::array<std::uint8_t, 6> kCovered = {0x00, 0x03, 0x00, 0x01, 0xB1, 0x7E};
constexpr std::array<std::uint8_t, 8> kCoveredWithCrc = {0x00, 0x03, 0x00, 0x01,
                                                         0xB1, 0x7E, 0x65, 0x97};

TEST(CrcStep, GivesTheCatalogueCheckValue) {
  constexpr std::string_view kDigits = "123456789";
  EXPECT_EQ(crcByManager(Bytes(kDigits.begin(), kDigits.end())), 0x29B1);
}

TEST(CrcStep, GivesTheStoredCrcOfGetReaderInfo) { EXPECT_EQ(crcByManager(kCovered), 0x6597); }

TEST(CrcStep, LeavesNoResidueOverTheCrcItself) { EXPECT_EQ(crcByManager(kCoveredWithCrc), 0x0000); }

TEST(CrcStep, DiffersWhenThePreambleIsIncluded) {
  Bytes withPreamble = {0xBB};
  withPreamble.insert(withPreamble.end(), kCovered.begin(), kCovered.end());
  EXPECT_NE(crcByManager(withPreamble), 0x6597);
}

TEST(CrcStep, LeavesAResidueWhenTheCrcBytesAreSwapped) {
  auto swapped = kCoveredWithCrc;
  std::swap(swapped[6], swapped[7]);
  EXPECT_NE(crcByManager(swapped), 0x0000);
}

TEST(CrcStep, EqualsEightBitStepsForEveryAccumulator) {
  for (const std::uint8_t byte :
       Bytes{0x00, 0x01, 0x03, 0x0F, 0x10, 0x7E, 0x7F, 0x80, 0xBB, 0xF0, 0xFF}) {
    for (std::uint32_t acc = 0; acc <= 0xFFFF; ++acc) {
      const auto before = static_cast<std::uint16_t>(acc);
      ASSERT_EQ(KestrinBleMgrTestPeer::getCrcPolynomial_acc(byte, before),
                referenceCrcStep(byte, before))
          << "byte " << int{byte} << ", accumulator " << acc;
    }
  }
}

TEST(CrcStep, EqualsEightBitStepsForEveryByte) {
  for (const std::uint16_t acc :
       std::vector<std::uint16_t>{0x0000, 0x0001, 0x1234, 0x7FFF, 0x8000, 0xFF00, 0xFFFF}) {
    for (int byte = 0; byte <= 0xFF; ++byte) {
      const auto next = static_cast<std::uint8_t>(byte);
      ASSERT_EQ(KestrinBleMgrTestPeer::getCrcPolynomial_acc(next, acc), referenceCrcStep(next, acc))
          << "byte " << byte << ", accumulator " << acc;
    }
  }
}

// Constant expressions, so undefined shifts would not even compile.
static_assert(rcp::crcStep(0x00, 0xFFFF) == referenceCrcStep(0x00, 0xFFFF));
static_assert(rcp::crcOver(kCovered) == 0x6597);
static_assert(rcp::crcOver(kCoveredWithCrc) == 0);

TEST(RcpFrameCrc, IsTheSameForApplications) {
  constexpr std::string_view kDigits = "123456789";
  EXPECT_EQ(rcpFrameCrc(Bytes(kDigits.begin(), kDigits.end())), 0x29B1);
  EXPECT_EQ(rcpFrameCrc(kCovered), 0x6597);
  EXPECT_EQ(rcpFrameCrc(kCoveredWithCrc), 0x0000);
  EXPECT_EQ(rcpFrameCrc({}), 0xFFFF);
}

}  // namespace
}  // namespace kestrin::test
