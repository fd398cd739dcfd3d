// What a consumer reads, and what it is told where it cannot be read.
#include <gtest/gtest.h>

#include "gateway/message/Records.h"

namespace kestrin::gateway {
namespace {

/// The members of a frame that is right, one of them replaced; left out when `value` is empty.
std::string frameWith(const std::string& name, const std::string& value) {
  const std::vector<std::pair<std::string, std::string>> members{
      {"v", "1"},
      {"log", "\"l\""},
      {"n", "5"},
      {"reader", "\"C0\""},
      {"name", "\"KVR\""},
      {"link", "2"},
      {"at", "\"1970-01-01T00:00:00.001Z\""},
      {"mono", "3"},
      {"bytes", "\"bb00\""}};
  bool found = name.empty();
  std::string text;
  const auto add = [&text](const std::string& its, const std::string& content) {
    text.append(text.empty() ? "\"" : ",\"").append(its).append("\":").append(content);
  };
  for (const auto& [its, usual] : members) {
    const std::string& content = its == name ? value : usual;
    found = found || its == name;
    if (!content.empty()) add(its, content);
  }
  if (!found) add(name, value);
  return '{' + text + '}';
}

Record plainRecord() {
  Record record;
  record.number = 5;
  record.reader = "C0";
  record.name = "KVR";
  record.link = 2;
  record.wallMs = 1;
  record.monoMs = 3;
  record.bytes = {0xBB, 0x00};
  return record;
}

std::optional<Delivery> read(std::string_view payload) {
  std::string error;
  auto delivery = deliveryOf(payload, error);
  EXPECT_EQ(error.empty(), delivery.has_value()) << error;
  EXPECT_TRUE(delivery) << payload << ": " << error;
  return delivery;
}

std::string deliveryErrorOf(std::string_view payload) {
  std::string error;
  EXPECT_FALSE(deliveryOf(payload, error)) << payload;
  EXPECT_EQ(error.find('\n'), std::string::npos);
  return error;
}

TEST(Delivery, AFrameIsRead) { EXPECT_EQ(read(frameWith("", "")), (Delivery{"l", plainRecord()})); }

TEST(Delivery, MembersThatAreNotKnownAreIgnored) {
  for (const char* const value : {"1", "\"x\"", "null", "true", "1.5", "{\"n\":7,\"log\":[]}",
                                  "[1,{\"n\":9},[{\"log\":3}]]", "-1", "1e300"}) {
    EXPECT_EQ(read(frameWith("later", value)), (Delivery{"l", plainRecord()})) << value;
  }
}

TEST(Delivery, TheVersionMayBeMissingAndIsOne) {
  EXPECT_EQ(read(frameWith("v", "")), (Delivery{"l", plainRecord()}));
  EXPECT_EQ(deliveryErrorOf(frameWith("v", "2")), "its version, \"v\", is 2; 1 would be right");
  EXPECT_EQ(deliveryErrorOf(frameWith("v", "\"1\"")),
            "\"v\": it is a text; a whole number from 1 to 9223372036854775808 would be right");
}

TEST(Delivery, KindsAreFrameAndValue) {
  Record value = plainRecord();
  value.kind = RecordKind::value;
  EXPECT_EQ(read(frameWith("kind", "\"value\"")), (Delivery{"l", value}));
  EXPECT_EQ(read(frameWith("kind", "\"frame\"")), (Delivery{"l", plainRecord()}));
  EXPECT_EQ(deliveryErrorOf(frameWith("kind", "\"gap\"")),
            "\"kind\": \"gap\" is not known; frame or value would be right");
}

TEST(Delivery, BytesOfANameTakeItsPlace) {
  Record record = plainRecord();
  record.name = "a\xFF";
  EXPECT_EQ(read(frameWith("nameHex", "\"61ff\"")), (Delivery{"l", record}));
}

TEST(Delivery, WhatIsMissingIsNamed) {
  EXPECT_EQ(deliveryErrorOf(frameWith("log", "")),
            "\"log\" is missing; 1 to 64 of the characters A-Z, a-z, 0-9, _ and - would be right");
  EXPECT_EQ(deliveryErrorOf(frameWith("n", "")),
            "\"n\" is missing; a whole number from 1 to 9223372036854775808 would be right");
  EXPECT_EQ(deliveryErrorOf(frameWith("bytes", "")),
            "\"bytes\" is missing; hexadecimal text, two digits for each byte, would be right");
  for (const char* const name : {"reader", "name", "link", "at", "mono"}) {
    EXPECT_EQ(deliveryErrorOf(frameWith(name, "")).find('"' + std::string(name) + "\" is missing"),
              0U);
  }
}

TEST(Delivery, WrongTypesAreNamed) {
  EXPECT_EQ(deliveryErrorOf(frameWith("name", "5")),
            "\"name\": it is a whole number; a text would be right");
  EXPECT_EQ(deliveryErrorOf(frameWith("link", "[]")),
            "\"link\": it is a list; a whole number from 0 to 9223372036854775808 would be right");
  EXPECT_EQ(deliveryErrorOf(frameWith("mono", "1.5")),
            "\"mono\": it is a number that is not whole or too large; a whole number of 64 bits "
            "with sign would be right");
  EXPECT_EQ(deliveryErrorOf(frameWith("bytes", "null")),
            "\"bytes\": it is null; hexadecimal text, two digits for each byte, would be right");
  EXPECT_EQ(deliveryErrorOf(frameWith("bytes", "\"bb0\"")),
            "\"bytes\": its last byte has one hexadecimal digit; two would be right");
  EXPECT_EQ(deliveryErrorOf(frameWith("at", "\"now\"")),
            "\"at\": \"now\" is not known; a time as in 2026-11-22T13:05:09.123Z would be right");
  EXPECT_EQ(deliveryErrorOf(frameWith("log", "\"a/b\"")),
            "\"log\": \"a/b\" is not a name; 1 to 64 of the characters A-Z, a-z, 0-9, _ and - "
            "would be right");
}

TEST(Delivery, NumbersGoTo2ToThe63rd) {
  EXPECT_EQ(read(frameWith("n", "9223372036854775808"))->record.number, 1ULL << 63U);
  const std::string right =
      " is out of range; a whole number from 1 to 9223372036854775808 would be right";
  EXPECT_EQ(deliveryErrorOf(frameWith("n", "9223372036854775809")),
            "\"n\": 9223372036854775809" + right);
  EXPECT_EQ(deliveryErrorOf(frameWith("n", "0")), "\"n\": 0" + right);
  EXPECT_EQ(deliveryErrorOf(frameWith("n", "-5")), "\"n\": -5" + right);
  EXPECT_EQ(deliveryErrorOf(frameWith("n", "1e999")), "a number in it is too large to be read");
  EXPECT_EQ(read(frameWith("mono", "-9223372036854775808"))->record.monoMs,
            std::numeric_limits<std::int64_t>::min());
}

TEST(Delivery, AGapIsRead) {
  EXPECT_EQ(
      read(R"({"log":"l","n":9,"gap":{"log":"m","from":3,"to":3,"reason":"budget","x":[1]}})"),
      (Delivery{"l", [] {
                  Record record;
                  record.number = 9;
                  record.kind = RecordKind::gap;
                  record.gap = Gap{"m", 3, 3, GapReason::budget};
                  return record;
                }()}));
}

TEST(Delivery, WhatIsWrongInAGapIsNamedWithIt) {
  EXPECT_EQ(deliveryErrorOf(R"({"log":"l","n":9,"gap":7})"),
            "\"gap\": it is a whole number; an object would be right");
  EXPECT_EQ(
      deliveryErrorOf(R"({"log":"l","n":9,"gap":{"log":"m","from":3,"to":2,"reason":"budget"}})"),
      "\"gap.to\": 2 is out of range; a whole number from 3 to 9223372036854775808 would be "
      "right");
  EXPECT_EQ(
      deliveryErrorOf(R"({"log":"l","n":9,"gap":{"log":"m","from":3,"to":4,"reason":"rust"}})"),
      "\"gap.reason\": \"rust\" is not known; budget, damaged or refused would be right");
  EXPECT_EQ(deliveryErrorOf(R"({"log":"l","n":9,"gap":{"log":"m","to":4,"reason":"damaged"}})"),
            "\"gap.from\" is missing; a whole number from 1 to 9223372036854775808 would be right");
}

TEST(Delivery, WhatIsNotOneObjectIsRefused) {
  EXPECT_EQ(deliveryErrorOf(""), "the payload is empty; one JSON object would be right");
  EXPECT_EQ(deliveryErrorOf("7"), "this is not one object with named members");
  EXPECT_EQ(deliveryErrorOf("[{}]"), "this is not one object with named members");
  EXPECT_EQ(deliveryErrorOf("{\"v\":1"), "this is not JSON, at byte 7");
  EXPECT_EQ(deliveryErrorOf("{} x"), "this is not JSON, at byte 4");
  EXPECT_EQ(deliveryErrorOf(std::string("{\"name\":\"\xFF\"}")), "this is not JSON, at byte 10");
  EXPECT_EQ(deliveryErrorOf(frameWith("n", "5,\"n\":6")), "\"n\" stands in it twice");
  EXPECT_EQ(deliveryErrorOf(std::string((1U << 20U) + 1, ' ')),
            "the payload has 1048577 bytes; at most 1048576 would be right");
}

TEST(Delivery, DeepNestingIsGoneThroughWithoutACallForEach) {
  const std::string deep(500'000, '[');
  EXPECT_EQ(deliveryErrorOf("{\"later\":" + deep + "}").find("this is not JSON"), 0U);
  std::string cbor = "\xA1\x61x";
  cbor += std::string(500'000, '\x81');
  EXPECT_EQ(deliveryErrorOf(cbor),
            "this is not CBOR: byte 11: more than 8 lists and maps stand within each other");
}

TEST(Delivery, CborThatIsCutOffOrStrangeIsRefused) {
  const std::string whole = payloadOf(frameRecord(), kLog, FrameFormat::cbor);
  EXPECT_EQ(read(whole), (Delivery{kLog, frameRecord()}));
  for (std::size_t length = 1; length < whole.size(); ++length) {
    const auto error = deliveryErrorOf(whole.substr(0, length));
    EXPECT_EQ(error.find("this is not CBOR: byte "), 0U) << length << error;
  }
  EXPECT_EQ(deliveryErrorOf(whole + '\0'), "this is not CBOR: byte " +
                                               std::to_string(whole.size() + 1) +
                                               ": something stands behind the item");
  EXPECT_EQ(deliveryErrorOf("\xA1\x61v\xC1\x01"), "this is not CBOR: byte 4: tags are not taken");
  EXPECT_EQ(deliveryErrorOf("\xBF\xFF"),
            "this is not CBOR: byte 1: a stated length would be right");
  EXPECT_EQ(deliveryErrorOf("\xA1\x01\x01").find("this is not CBOR with texts as names"), 0U);
}

TEST(Delivery, CborMayHaveHexadecimalTextForBytes) {
  std::string payload = payloadOf(frameRecord(), kLog, FrameFormat::cbor);
  const std::vector<std::uint8_t>& bytes = frameRecord().bytes;
  const std::string raw(bytes.begin(), bytes.end());
  const auto at = payload.find(raw);
  ASSERT_NE(at, std::string::npos);
  // A byte string of at most 23 bytes has its length in the byte before; a text of up to 255 in
  // two.
  const auto hex = hexOf(bytes);
  payload.replace(at - 1, raw.size() + 1,
                  std::string("\x78") + static_cast<char>(hex.size()) + hex);
  EXPECT_EQ(read(payload), (Delivery{kLog, frameRecord()}));
}

}  // namespace
}  // namespace kestrin::gateway
