// UUIDs and their text.
#include "KestrinBLESDK/platform/CBUUID.h"

#include <gtest/gtest.h>

namespace kestrin::test {
namespace {

constexpr char kData[] = "BA821000-3B5B-4654-85FE-E998B123ADEA";

CBUUID uuid(std::string_view text) {
  NSError error;
  const auto read = CBUUID::UUIDWithString(text, &error);
  EXPECT_TRUE(read.has_value()) << error.localizedDescription();
  return read.value_or(CBUUID(std::uint16_t{0}));
}

TEST(CBUUIDText, IsReadInEitherCase) {
  EXPECT_EQ(uuid("ba821000-3b5b-4654-85fe-e998b123adea"), uuid(kData));
  EXPECT_EQ(uuid("fff1"), uuid("FFF1"));
}

TEST(CBUUIDText, HoldsTheBytesMostSignificantFirst) {
  const CBUUID::Bytes expected = {0xBA, 0x82, 0x10, 0x00, 0x3B, 0x5B, 0x46, 0x54,
                                  0x85, 0xFE, 0xE9, 0x98, 0xB1, 0x23, 0xAD, 0xEA};
  EXPECT_EQ(uuid(kData).bytes(), expected);
  EXPECT_EQ(CBUUID(expected).UUIDString(), kData);
}

TEST(CBUUIDText, OfAShortFormStandsForTheBaseRange) {
  EXPECT_TRUE(uuid("2A29").isEqual(uuid("00002A29-0000-1000-8000-00805F9B34FB")));
  EXPECT_TRUE(uuid("2A29").isEqual(uuid("00002a29")));
  EXPECT_EQ(uuid("2A29"), CBUUID(std::uint16_t{0x2A29}));
  EXPECT_EQ(uuid("12345678"), uuid("12345678-0000-1000-8000-00805F9B34FB"));
  EXPECT_FALSE(uuid("2A29").isEqual(uuid("2A27")));
}

TEST(CBUUIDText, IsFourUpperCaseDigitsForASixteenBitValue) {
  EXPECT_EQ(uuid("fff1").UUIDString(), "FFF1");
  EXPECT_EQ(uuid("00002a29-0000-1000-8000-00805f9b34fb").UUIDString(), "2A29");
  EXPECT_EQ(uuid("0000abcd").UUIDString(), "ABCD");
  EXPECT_EQ(uuid("0000").UUIDString(), "0000");
}

TEST(CBUUIDText, IsThirtySixUpperCaseCharactersForEveryOtherValue) {
  EXPECT_EQ(uuid("ba821000-3b5b-4654-85fe-e998b123adea").UUIDString(), kData);
}

TEST(CBUUIDText, IsTheLongFormForABaseRangeValueAboveSixteenBits) {
  EXPECT_EQ(uuid("0001fff1").UUIDString(), "0001FFF1-0000-1000-8000-00805F9B34FB");
  EXPECT_EQ(uuid("0100fff1-0000-1000-8000-00805f9b34fb").UUIDString(),
            "0100FFF1-0000-1000-8000-00805F9B34FB");
}

TEST(CBUUIDText, IsTheLongFormForAValueThatOnlyNearlyLiesInTheBaseRange) {
  for (const char* text :
       {"0000FFF1-0001-1000-8000-00805F9B34FB", "0000FFF1-0000-1001-8000-00805F9B34FB",
        "0000FFF1-0000-1000-8001-00805F9B34FB", "0000FFF1-0000-1000-8000-00805F9B34FC"}) {
    EXPECT_EQ(uuid(text).UUIDString(), text);
    EXPECT_EQ(uuid(text).shortUUID(), std::nullopt) << text;
  }
}

TEST(CBUUIDText, IsReadBackAsTheSameValue) {
  for (const char* text : {kData, "FFF1", "0001FFF1-0000-1000-8000-00805F9B34FB"}) {
    EXPECT_EQ(uuid(uuid(text).UUIDString()), uuid(text));
  }
}

TEST(CBUUIDShortForm, IsTheSixteenBitValue) {
  EXPECT_EQ(uuid("FFF1").shortUUID(), 0xFFF1);
  EXPECT_EQ(uuid("00002A29").shortUUID(), 0x2A29);
  EXPECT_EQ(uuid("0001FFF1").shortUUID(), std::nullopt);
  EXPECT_EQ(uuid(kData).shortUUID(), std::nullopt);
}

TEST(CBUUIDText, IsComparedLetterForLetterWithTheCanonicalOne) {
  for (const char* text : {"2A29", "FFF1", "0001FFF1", kData}) {
    const CBUUID made = uuid(text);
    EXPECT_TRUE(made.hasUUIDString(made.UUIDString())) << text;
    for (std::size_t i = 0; i < made.UUIDString().size(); ++i) {
      std::string other = made.UUIDString();
      other[i] = other[i] == '0' ? '1' : '0';
      EXPECT_FALSE(made.hasUUIDString(other)) << other;
    }
    EXPECT_FALSE(made.hasUUIDString(made.UUIDString() + "0"));
    EXPECT_FALSE(made.hasUUIDString(made.UUIDString().substr(1)));
    EXPECT_FALSE(made.hasUUIDString(""));
  }
  EXPECT_FALSE(uuid("2A29").hasUUIDString("2a29"));
  EXPECT_FALSE(uuid("2A29").hasUUIDString("00002A29-0000-1000-8000-00805F9B34FB"));
  EXPECT_TRUE(uuid("00002A29-0000-1000-8000-00805F9B34FB").hasUUIDString("2A29"));
}

TEST(CBUUIDOrder, IsThatOfTheBytes) {
  EXPECT_LT(uuid("0001"), uuid("0002"));
  EXPECT_LT(uuid("FFFF"), uuid(kData));
}

struct Refusal {
  const char* text;
  const char* reason;
};

class CBUUIDRefusal : public ::testing::TestWithParam<Refusal> {};

TEST_P(CBUUIDRefusal, SaysWhatIsWrongAndWhatWouldBeRight) {
  NSError error;
  EXPECT_EQ(CBUUID::UUIDWithString(GetParam().text, &error), std::nullopt);
  EXPECT_EQ(error.domain, "KestrinErrorDomain");
  EXPECT_EQ(error.localizedDescription(),
            std::string("\"") + GetParam().text + "\" is not a UUID: " + GetParam().reason +
                "; a UUID is 4, 8 or, with hyphens as 8-4-4-4-12, 32 hexadecimal digits");
}

TEST_P(CBUUIDRefusal, NeedsNobodyWhoAsksWhy) {
  EXPECT_EQ(CBUUID::UUIDWithString(GetParam().text), std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(
    Malformed, CBUUIDRefusal,
    ::testing::Values(
        Refusal{"", "it has 0 characters"}, Refusal{"FFF", "it has 3 characters"},
        Refusal{"FFF10", "it has 5 characters"}, Refusal{"0xFFF1", "it has 6 characters"},
        Refusal{"BA8210003B5B465485FEE998B123ADEA", "it has 32 characters"},
        Refusal{"{BA821000-3B5B-4654-85FE-E998B123ADEA}", "it has 38 characters"},
        Refusal{"FFG1", "character 3 is not a hexadecimal digit"},
        Refusal{" FF1", "character 1 is not a hexadecimal digit"},
        Refusal{"FF-1", "character 3 is not a hexadecimal digit"},
        Refusal{"0000FFG1", "character 7 is not a hexadecimal digit"},
        Refusal{"BA821000_3B5B-4654-85FE-E998B123ADEA", "character 9 is not a hyphen"},
        Refusal{"BA821000-3B5B-4654-85FE0E998B123ADEA", "character 24 is not a hyphen"},
        Refusal{"BA821000-3B5B-4654-85FE-E998B123ADE-", "character 36 is not a hexadecimal digit"},
        Refusal{"BA82100-03B5B-4654-85FE-E998B123ADEA", "character 8 is not a hexadecimal digit"}));

}  // namespace
}  // namespace kestrin::test
