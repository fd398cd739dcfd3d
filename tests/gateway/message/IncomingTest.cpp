// What others publish for the gateway: commits, wishes for a replay, commands.
#include <gtest/gtest.h>

#include "gateway/message/Records.h"

namespace kestrin::gateway {
namespace {

using Its = std::vector<std::uint8_t>;

template <class T>
std::string errorOf(std::optional<T> (*read)(std::string_view, std::string&),
                    std::string_view payload) {
  std::string error;
  EXPECT_FALSE(read(payload, error)) << payload;
  EXPECT_EQ(error.find('\n'), std::string::npos);
  return error;
}

Its bytesOf(std::string_view payload) {
  std::string error;
  const auto command = commandOf(payload, error);
  EXPECT_TRUE(command) << error;
  return command ? command->bytes : Its();
}

std::string command(const Its& bytes) { return "{\"bytes\":\"" + hexOf(bytes) + "\"}"; }

TEST(Incoming, ACommitIsRead) {
  std::string error = "of another one";
  EXPECT_EQ(commitOf(R"({"v":1,"log":"l","n":0,"x":2})", error), (Commit{"l", 0}));
  EXPECT_EQ(error, "");
  EXPECT_EQ(commitOf(textOf(Commit{"l", 1ULL << 63U}), error), (Commit{"l", 1ULL << 63U}));
  EXPECT_EQ(errorOf(commitOf, R"({"n":5})"),
            "\"log\" is missing; 1 to 64 of the characters A-Z, a-z, 0-9, _ and - would be right");
  EXPECT_EQ(errorOf(commitOf, R"({"log":"l","n":"5"})"),
            "\"n\": it is a text; a whole number from 0 to 9223372036854775808 would be right");
  EXPECT_EQ(errorOf(commitOf, ""), "the payload is empty; one JSON object would be right");
}

TEST(Incoming, AWishForAReplayIsRead) {
  std::string error;
  EXPECT_EQ(replayOf(textOf(Replay{"l", 7, "stock"}), error), (Replay{"l", 7, "stock"}));
  EXPECT_EQ(errorOf(replayOf, R"({"log":"l","from":0,"consumer":"stock"})"),
            "\"from\": 0 is out of range; a whole number from 1 to 9223372036854775808 would be "
            "right");
  EXPECT_EQ(errorOf(replayOf, R"({"log":"l","from":1,"consumer":"a/b"})"),
            "\"consumer\": \"a/b\" is not a name; 1 to 64 of the characters A-Z, a-z, 0-9, _ and - "
            "would be right");
}

TEST(Incoming, ACommandIsOneWholeFrame) {
  const Its frame = frameOf(0x00, 0x22, {0x01, 0x02});
  EXPECT_EQ(bytesOf(command(frame)), frame);
  EXPECT_EQ(bytesOf(R"({"v":1,"bytes":"BB 00 03 00 01 00 7E 48 AB","why":"x"})"),
            frameOf(0x00, 0x03, {0x00}));
}

TEST(Incoming, ACommandMayBeCborWithAByteString) {
  const Its frame = frameOf(0x00, 0x22, {});
  std::string payload =
      "\xA1\x65"
      "bytes";
  payload += static_cast<char>(0x40 + frame.size());
  payload.append(frame.begin(), frame.end());
  EXPECT_EQ(bytesOf(payload), frame);
}

TEST(Incoming, WhatIsNotOneWholeFrameIsToldWhatIsWrongWithIt) {
  Its frame = frameOf(0x00, 0x22, {0x01});
  const auto toldOf = [](const Its& bytes) {
    RcpFrameError error;
    EXPECT_FALSE(parseRcpFrame(bytes, &error));
    return "\"bytes\": this is not one whole frame: " + error.text;
  };
  for (std::size_t length = 0; length < frame.size(); ++length) {
    const Its cut(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_EQ(errorOf(commandOf, command(cut)), toldOf(cut));
  }
  frame.back() ^= 1U;
  EXPECT_EQ(errorOf(commandOf, command(frame)), toldOf(frame));
  frame.back() ^= 1U;
  frame.push_back(0);
  EXPECT_EQ(errorOf(commandOf, command(frame)), toldOf(frame));
}

TEST(Incoming, ACommandHasAtMost1029Bytes) {
  const std::size_t around = frameOf(0x00, 0x22, {}).size();
  const Its longest = frameOf(0x00, 0x22, Its(kLongestCommand - around, 0x05));
  ASSERT_EQ(longest.size(), 1029U);
  EXPECT_EQ(bytesOf(command(longest)), longest);
  const Its longer = frameOf(0x00, 0x22, Its(kLongestCommand - around + 1, 0x05));
  ASSERT_EQ(longer.size(), 1030U);
  EXPECT_EQ(errorOf(commandOf, command(longer)),
            "\"bytes\": the frame has 1030 bytes; at most 1029 would be right");
}

TEST(Incoming, ACommandsMemberIsNamed) {
  EXPECT_EQ(errorOf(commandOf, "{}"),
            "\"bytes\" is missing; hexadecimal text, two digits for each byte, would be right");
  EXPECT_EQ(errorOf(commandOf, R"({"bytes":187})"),
            "\"bytes\": it is a whole number; hexadecimal text, two digits for each byte, would be "
            "right");
  EXPECT_EQ(
      errorOf(commandOf, R"({"bytes":"hello"})"),
      "\"bytes\": its character 1 is not a hexadecimal digit; two of them for each byte would "
      "be right");
  EXPECT_EQ(errorOf(commandOf, "bb0022000000"), "this is not JSON, at byte 1");
  EXPECT_EQ(errorOf(commandOf, std::string(16'385, ' ')),
            "the payload has 16385 bytes; at most 16384 would be right");
}

}  // namespace
}  // namespace kestrin::gateway
