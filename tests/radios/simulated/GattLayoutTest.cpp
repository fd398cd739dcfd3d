#include "kestrin/simulated/GattLayout.h"

#include <gtest/gtest.h>

#include <string>

namespace kestrin::simulated {
namespace {

/// One line per attribute: services at the margin, characteristics with their mask below them.
std::string textOf(const GattLayout& layout) {
  std::string text = "\n";
  for (const auto& service : layout) {
    text += service.uuid.UUIDString() + "\n";
    for (const auto& found : service.characteristics) {
      text += "  " + found.uuid.UUIDString() + " " + std::to_string(found.properties) + "\n";
    }
  }
  return text;
}

TEST(GattLayout, AStandardReaderHasItsDataServiceAndDeviceInformation) {
  EXPECT_EQ(textOf(readerLayout(ReaderFamily::standard)), R"(
1800
  2A00 2
180A
  2A27 2
  2A29 2
BA821000-3B5B-4654-85FE-E998B123ADEA
  BA821001-3B5B-4654-85FE-E998B123ADEA 12
  BA821002-3B5B-4654-85FE-E998B123ADEA 16
)");
}

TEST(GattLayout, AKvrQ62TReaderHasSeveralServicesWithShortUuids) {
  EXPECT_EQ(textOf(readerLayout(ReaderFamily::kvrQ62T)), R"(
1800
  2A00 2
180A
  2A29 2
FFF0
  FFF1 16
  FFF2 24
180F
  2A19 2
)");
}

TEST(GattLayout, WhatIsNoReaderHasNoCharacteristicOfAReader) {
  EXPECT_EQ(textOf(nonReaderLayout()), R"(
1800
  2A00 2
180F
  2A19 2
)");
}

TEST(GattLayout, TheMaskOfTxCanBeChosen) {
  for (const auto family : {ReaderFamily::standard, ReaderFamily::kvrQ62T}) {
    const CBUUID tx = readerCharacteristics(family).tx;
    std::size_t found = 0;
    for (const auto& service : readerLayout(family, CBCharacteristicPropertyRead)) {
      for (const auto& characteristic : service.characteristics) {
        if (characteristic.uuid != tx) continue;
        ++found;
        EXPECT_EQ(characteristic.properties, CBCharacteristicPropertyRead);
      }
    }
    EXPECT_EQ(found, 1U);
  }
}

TEST(GattLayout, CommandsAndRepliesHaveTheirCharacteristics) {
  const auto standard = readerCharacteristics(ReaderFamily::standard);
  EXPECT_EQ(standard.tx.UUIDString(), "BA821001-3B5B-4654-85FE-E998B123ADEA");
  EXPECT_EQ(standard.rx.UUIDString(), "BA821002-3B5B-4654-85FE-E998B123ADEA");
  EXPECT_EQ(readerService(ReaderFamily::standard).UUIDString(),
            "BA821000-3B5B-4654-85FE-E998B123ADEA");
  const auto kvr = readerCharacteristics(ReaderFamily::kvrQ62T);
  EXPECT_EQ(kvr.tx.UUIDString(), "FFF2");
  EXPECT_EQ(kvr.rx.UUIDString(), "FFF1");
  EXPECT_EQ(readerService(ReaderFamily::kvrQ62T).UUIDString(), "FFF0");
}

}  // namespace
}  // namespace kestrin::simulated
