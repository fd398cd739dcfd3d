// Payloads that the gateway publishes, letter for letter.
#include <gtest/gtest.h>

#include <limits>

#include "gateway/message/Records.h"

namespace kestrin::gateway {
namespace {

std::string jsonOf(const Record& record) { return payloadOf(record, kLog, FrameFormat::json); }

TEST(Payload, AFrameIsTakenApart) {
  EXPECT_EQ(jsonOf(frameRecord()), R"({"v":1,"log":"0123456789abcdef0123456789abcdef","n":48213,)"
                                   R"("reader":"C0:00:00:00:00:01","name":"KVR-0417","link":17,)"
                                   R"("at":"2026-11-22T13:05:09.123Z","mono":5000000,"bytes":")" +
                                       hexOf(frameRecord().bytes) +
                                       R"(","type":2,"code":34,"payload":"01ab"})");
}

TEST(Payload, AFrameThatCannotBeTakenApartHasItsBytesOnly) {
  Record record = frameRecord();
  record.bytes = {0xBB, 0x00};
  const auto text = jsonOf(record);
  EXPECT_NE(text.find(R"("bytes":"bb00"})"), std::string::npos) << text;
}

TEST(Payload, AValueIsCalledSoAndIsNotTakenApart) {
  Record record = frameRecord();
  record.kind = RecordKind::value;
  const auto text = jsonOf(record);
  EXPECT_NE(text.find(R"("n":48213,"kind":"value","reader")"), std::string::npos) << text;
  EXPECT_EQ(text.find("payload"), std::string::npos) << text;
}

TEST(Payload, AGapNamesWhatIsLost) {
  EXPECT_EQ(
      jsonOf(gapRecord()),
      R"({"v":1,"log":"0123456789abcdef0123456789abcdef","n":12,)"
      R"("gap":{"log":"fedcba9876543210fedcba9876543210","from":3,"to":11,"reason":"damaged"}})");
}

TEST(Payload, EveryReasonHasAWordThatLeadsBack) {
  for (const auto reason : {GapReason::budget, GapReason::damaged, GapReason::refused}) {
    EXPECT_EQ(gapReasonOf(wordOf(reason)), reason);
  }
  EXPECT_EQ(wordOf(GapReason::budget), "budget");
  EXPECT_EQ(wordOf(GapReason::damaged), "damaged");
  EXPECT_EQ(wordOf(GapReason::refused), "refused");
  EXPECT_FALSE(gapReasonOf(""));
  EXPECT_FALSE(gapReasonOf("Budget"));
}

TEST(Payload, ANameThatIsNotUtf8IsMendedAndItsBytesStandBeside) {
  Record record = frameRecord();
  record.name = "a\xFF\"\n";
  const auto text = jsonOf(record);
  EXPECT_NE(text.find("\"name\":\"a\xEF\xBF\xBD\\\"\\n\",\"nameHex\":\"61ff220a\""),
            std::string::npos)
      << text;
}

TEST(Payload, WhatJsonCannotHaveAsItIsIsEscapedAndNothingElse) {
  Record record = frameRecord();
  record.kind = RecordKind::value;
  record.number = std::numeric_limits<RecordNumber>::max();
  record.reader = std::string("\b\f\n\r\t\"\\/\0\x1F\x7F", 11);
  record.name = "Z\xC3\xBC \xF0\x9F\x98\x80";
  record.link = std::numeric_limits<std::uint64_t>::max();
  record.wallMs = -1;
  record.monoMs = std::numeric_limits<std::int64_t>::min();
  record.bytes.clear();
  EXPECT_EQ(payloadOf(record, "\"\xFF", FrameFormat::json),
            "{\"v\":1,\"log\":\"\\\"\xEF\xBF\xBD\",\"n\":18446744073709551615,\"kind\":\"value\","
            "\"reader\":\"\\b\\f\\n\\r\\t\\\"\\\\/\\u0000\\u001f\x7F\","
            "\"name\":\"Z\xC3\xBC \xF0\x9F\x98\x80\",\"link\":18446744073709551615,"
            "\"at\":\"1969-12-31T23:59:59.999Z\",\"mono\":-9223372036854775808,\"bytes\":\"\"}");
}

TEST(Payload, StatesAreWrittenAsTheyAreWrittenDown) {
  EXPECT_EQ(textOf(GatewayState{true, "b1"}), R"({"v":1,"online":true,"boot":"b1"})");
  EXPECT_EQ(textOf(GatewayState{false, "b1"}), R"({"v":1,"online":false,"boot":"b1"})");
  EXPECT_EQ(textOf(ReaderState{"pluggedIn", "KVR-0417", "C0", "2026-11-22T13:05:09.123Z", ""}),
            R"({"v":1,"reader":"C0","name":"KVR-0417","phase":"pluggedIn",)"
            R"("since":"2026-11-22T13:05:09.123Z"})");
  EXPECT_EQ(textOf(ReaderState{"lost", "", "C0", "", "gone"}),
            R"({"v":1,"reader":"C0","name":"","phase":"lost","since":"","trouble":"gone"})");
}

TEST(Payload, InfoAndHealthHaveWhatIsKnown) {
  GatewayInfo info{"b1", "1.0.0", "bluez",  "hci0", kLog, "as durable as your broker",
                   3,    9,       {"stock"}};
  EXPECT_EQ(textOf(info),
            R"({"v":1,"boot":"b1","version":"1.0.0","radio":"bluez","adapter":"hci0",)"
            R"("log":"0123456789abcdef0123456789abcdef","first":3,"next":9,)"
            R"("promise":"as durable as your broker","consumers":["stock"]})");
  info.adapter.clear();
  info.consumers.clear();
  EXPECT_NE(textOf(info).find(R"("radio":"bluez","log")"), std::string::npos);
  EXPECT_NE(textOf(info).find(R"("consumers":[])"), std::string::npos);
  EXPECT_EQ(
      textOf(Health{"l", 1, 2, 3, 4, 5, 6, 7, {{"stock", 8}}, {"full"}}),
      R"({"v":1,"log":"l","first":1,"last":2,"synced":3,"published":4,"forgotten":5,"bytes":6,)"
      R"("budget":7,"commits":{"stock":8},"trouble":["full"]})");
  EXPECT_NE(textOf(Health{}).find(R"("commits":{},"trouble":[])"), std::string::npos);
}

TEST(Payload, AnAnswerSaysWhyNot) {
  EXPECT_EQ(commandAnswer(true, ""), R"({"v":1,"handed":true})");
  EXPECT_EQ(commandAnswer(false, "not plugged in"),
            R"({"v":1,"handed":false,"why":"not plugged in"})");
}

TEST(Payload, WhatIsNotUtf8NeverBreaksAText) {
  for (const std::string& text :
       {textOf(ReaderState{"lost", "\xFF", "\xFE", "\xFD", "\xFC"}), commandAnswer(false, "\xFF"),
        textOf(GatewayState{true, "\xC3"})}) {
    EXPECT_FALSE(mendedUtf8(text)) << text;
  }
}

TEST(Payload, CommitsAndReplaysAreWrittenAsTheyAreWrittenDown) {
  EXPECT_EQ(textOf(Commit{"l", 7}), R"({"v":1,"log":"l","n":7})");
  EXPECT_EQ(textOf(Replay{"l", 8, "stock"}), R"({"v":1,"log":"l","from":8,"consumer":"stock"})");
}

TEST(Payload, CborHasTheSameMembersWithBytesAsTheyAre) {
  Record record = frameRecord();
  record.bytes = {0xBB};
  const auto payload = payloadOf(record, "l", FrameFormat::cbor);
  const std::vector<std::uint8_t> bytes(payload.begin(), payload.end());
  EXPECT_EQ(hexOf(bytes),
            "a9"              // Nine members.
            "617601"          // v: 1
            "636c6f67616c"    // log: "l"
            "616e19bc55"      // n: 48213
            "66726561646572"  // reader:
            "7143303a30303a30303a30303a30303a3031"
            "646e616d65684b56522d30343137"  // name: "KVR-0417"
            "646c696e6b11"                  // link: 17
            "6261747818323032362d31312d32325431333a30353a30392e3132335a"
            "646d6f6e6f1a004c4b40"  // mono: 5000000
            "65627974657341bb");    // bytes: one byte
}

TEST(Payload, CborIsShorter) {
  EXPECT_LT(payloadOf(frameRecord(), kLog, FrameFormat::cbor).size(), jsonOf(frameRecord()).size());
}

}  // namespace
}  // namespace kestrin::gateway
