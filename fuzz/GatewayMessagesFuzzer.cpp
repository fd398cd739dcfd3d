// Fuzzes what comes to a gateway and to its consumers through the broker. What can be read comes
// back from what is written of it; what cannot is told on one line.
//
// Input: a byte that picks the kind, and a payload, a text, or what makes a record.
#include <KestrinBLESDK/RcpFrame.h>

#include <algorithm>

#include "fuzz/Fuzzing.h"
#include "tools/gateway/message/Bytes.h"
#include "tools/gateway/message/Messages.h"

namespace kestrin::fuzz {
namespace {

using gateway::Delivery;
using gateway::FrameFormat;
using gateway::Record;
using gateway::RecordKind;

void checkError(bool right, const std::string& error) {
  require(right == error.empty(), "what is wrong is told, and nothing else");
  const bool oneLine = std::none_of(error.begin(), error.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
  });
  require(oneLine, "an error is one line");
}

void comesBack(const Delivery& delivery) {
  for (const FrameFormat format : {FrameFormat::json, FrameFormat::cbor}) {
    const std::string payload = gateway::payloadOf(delivery.record, delivery.log, format);
    std::string error;
    require(gateway::deliveryOf(payload, error) == delivery, "a record comes back");
    require(format == FrameFormat::cbor || !gateway::mendedUtf8(payload), "JSON is UTF-8");
  }
}

void readDelivery(const std::string& payload) {
  std::string error;
  const auto delivery = gateway::deliveryOf(payload, error);
  checkError(delivery.has_value(), error);
  if (delivery) comesBack(*delivery);
}

template <class T>
void readSmall(std::optional<T> (*read)(std::string_view, std::string&),
               const std::string& payload) {
  std::string error;
  const auto its = read(payload, error);
  checkError(its.has_value(), error);
  if (its) require(read(textOf(*its), error) == its, "it comes back");
}

void readCommand(const std::string& payload) {
  std::string error;
  const auto command = gateway::commandOf(payload, error);
  checkError(command.has_value(), error);
  if (!command) return;
  require(command->bytes.size() <= gateway::kLongestCommand, "a command is not too long");
  require(parseRcpFrame(command->bytes).has_value(), "a command is one whole frame");
  const auto again =
      gateway::commandOf("{\"bytes\":\"" + gateway::hexOf(command->bytes) + "\"}", error);
  require(again && again->bytes == command->bytes, "a command comes back");
}

std::uint64_t number(ByteSource& input) {
  std::uint64_t number = 0;
  for (const std::uint8_t byte : input.take(input.below(9))) number = number << 8U | byte;
  return number;
}

std::uint64_t recordNumber(ByteSource& input) { return number(input) % ((1ULL << 63U) - 1) + 1; }

Record gapRecord(ByteSource& input) {
  Record record;
  record.kind = RecordKind::gap;
  record.number = recordNumber(input);
  const auto one = recordNumber(input);
  const auto other = recordNumber(input);
  record.gap = gateway::Gap{"L-_9", std::min(one, other), std::max(one, other),
                            static_cast<gateway::GapReason>(1 + input.below(3))};
  return record;
}

Record frameRecord(ByteSource& input) {
  Record record;
  record.kind = input.flag() ? RecordKind::frame : RecordKind::value;
  record.number = recordNumber(input);
  record.link = recordNumber(input);
  record.wallMs = static_cast<std::int64_t>(number(input));
  record.monoMs = static_cast<std::int64_t>(number(input));
  record.reader = textOf(input.block());
  record.name = textOf(input.block());
  const ByteView bytes = input.rest();
  record.bytes = {bytes.begin(), bytes.end()};
  return record;
}

void writeRecord(ByteSource& input) {
  comesBack({"0123456789abcdef", input.flag() ? gapRecord(input) : frameRecord(input)});
}

void useTopics(const std::string& text) {
  const gateway::Topics topics("dock");
  require(topics.commandedReader(topics.readerCommand(text)) == text, "a reader comes back");
  const auto part = gateway::topicPart(text);
  require(!part.empty() && part.find_first_of("+#/") == std::string::npos, "a part is one level");
  if (const auto reader = topics.commandedReader(text)) {
    require(topics.readerCommand(*reader) == text, "a topic has one reader");
  }
  if (const auto consumer = topics.committingConsumer(text)) {
    require(topics.commit(*consumer) == text, "a topic has one consumer");
  }
}

void readTime(const std::string& text) {
  if (const auto ms = gateway::wallMsOf(text)) {
    require(gateway::utcText(*ms) == text, "a time has one text");
  }
}

void readHex(const std::string& text) {
  std::string error;
  const auto bytes = gateway::bytesOfHex(text, error);
  checkError(bytes.has_value(), error);
  if (bytes)
    require(gateway::bytesOfHex(gateway::hexOf(*bytes), error) == bytes, "bytes come back");
}

}  // namespace
}  // namespace kestrin::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kestrin::fuzz;
  namespace gateway = kestrin::gateway;
  ByteSource input({data, size});
  switch (input.u8() % 8) {
    case 0:
      readDelivery(textOf(input.rest()));
      break;
    case 1:
      readCommand(textOf(input.rest()));
      break;
    case 2:
      readSmall(&gateway::commitOf, textOf(input.rest()));
      break;
    case 3:
      readSmall(&gateway::replayOf, textOf(input.rest()));
      break;
    case 4:
      writeRecord(input);
      break;
    case 5:
      useTopics(textOf(input.rest()));
      break;
    case 6:
      readTime(textOf(input.rest()));
      break;
    default:
      readHex(textOf(input.rest()));
      break;
  }
  return 0;
}
