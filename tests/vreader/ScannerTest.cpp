// The scan parameters and the filter accept list.
#include <gtest/gtest.h>

#include "tools/vreader/Scanner.h"
#include "vreader/ControllerTest.h"

namespace kestrin::vreader {
namespace {

using hci::ErrorCode;

ErrorCode setParameters(Scanner& scanner, const Bytes& parameters) {
  return scanner.setParameters(ByteReader(parameters));
}
ErrorCode setEnable(Scanner& scanner, const Bytes& parameters) {
  return scanner.setEnable(ByteReader(parameters));
}

TEST(Scanner, RefusesParametersThatItDoesNotKnowOrThatAreMissing) {
  Scanner scanner;
  EXPECT_EQ(setParameters(scanner, {0x02, 0x10, 0x00, 0x10, 0x00, 0x00, 0x00}),
            ErrorCode::invalidHciCommandParameters);
  EXPECT_EQ(setParameters(scanner, {0x01, 0x10, 0x00, 0x10, 0x00, 0x00, 0x04}),
            ErrorCode::invalidHciCommandParameters);
  EXPECT_EQ(setParameters(scanner, {0x01, 0x10}), ErrorCode::invalidHciCommandParameters);
  EXPECT_EQ(setEnable(scanner, {0x02, 0x00}), ErrorCode::invalidHciCommandParameters);
  EXPECT_FALSE(scanner.isEnabled());
}

TEST(Scanner, KeepsItsParametersWhileItScans) {
  Scanner scanner;
  EXPECT_EQ(setEnable(scanner, {0x01, 0x00}), ErrorCode::success);
  EXPECT_EQ(setParameters(scanner, {0x01, 0x10, 0x00, 0x10, 0x00, 0x00, 0x00}),
            ErrorCode::commandDisallowed);
  EXPECT_FALSE(scanner.isActive());
}

TEST(Scanner, WithTheAcceptListPolicyOnlyListedDevicesAreHeard) {
  Scanner scanner;
  const FakeDevice listed(1);
  const FakeDevice other(2);
  setParameters(scanner, {0x00, 0x10, 0x00, 0x10, 0x00, 0x00, 0x01});
  setEnable(scanner, {0x01, 0x00});
  EXPECT_EQ(scanner.addToAcceptList(listed.address()), ErrorCode::success);
  EXPECT_EQ(scanner.hear(listed).size(), 1U);
  EXPECT_TRUE(scanner.hear(other).empty());
  scanner.removeFromAcceptList(listed.address());
  EXPECT_TRUE(scanner.hear(listed).empty());
}

TEST(Scanner, TheAcceptListHoldsSoManyDevicesAndNoMore) {
  Scanner scanner;
  for (std::uint16_t number = 1; number <= Scanner::kAcceptListSize; ++number) {
    EXPECT_EQ(scanner.addToAcceptList(DeviceAddress::staticRandom(number)), ErrorCode::success);
  }
  EXPECT_EQ(scanner.addToAcceptList(DeviceAddress::staticRandom(99)),
            ErrorCode::memoryCapacityExceeded);
  EXPECT_EQ(scanner.addToAcceptList(DeviceAddress::staticRandom(1)), ErrorCode::success)
      << "one that is there already";
  scanner.clearAcceptList();
  EXPECT_EQ(scanner.addToAcceptList(DeviceAddress::staticRandom(99)), ErrorCode::success);
}

}  // namespace
}  // namespace kestrin::vreader
