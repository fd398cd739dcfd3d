#include "tools/kestrin/text/Frames.h"

#include <KestrinBLESDK/RcpFrame.h>

#include "tools/kestrin/text/Hex.h"

namespace kestrin::app {
namespace {

constexpr std::uint8_t kPreamble = 0xBB;
constexpr std::uint8_t kEndMark = 0x7E;
constexpr std::size_t kAroundPayload = 8;  // Preamble to length, end mark and CRC.

std::size_t payloadLength(std::span<const std::uint8_t> frame) {
  return static_cast<std::size_t>(frame[3]) << 8 | frame[4];
}

std::string hexOfCrc(std::uint16_t crc) {
  const std::uint8_t bytes[] = {static_cast<std::uint8_t>(crc >> 8),
                                static_cast<std::uint8_t>(crc & 0xFF)};
  return upperHex(bytes);
}

}  // namespace

std::string countOf(std::uint64_t count, const std::string& thing) {
  return std::to_string(count) + ' ' + thing + (count == 1 ? "" : "s");
}

std::string whyNoFrame(std::span<const std::uint8_t> bytes) {
  if (bytes.empty()) return "it is empty";
  if (bytes.front() != kPreamble) return "it does not begin with BB";
  if (bytes.size() < kAroundPayload) {
    return "it has " + countOf(bytes.size(), "byte") + ", the shortest frame has 8";
  }
  if (payloadLength(bytes) + kAroundPayload != bytes.size()) {
    return "its length field tells " + countOf(payloadLength(bytes), "byte") +
           " of payload, it has " + std::to_string(bytes.size() - kAroundPayload);
  }
  const std::uint8_t endMark = bytes[bytes.size() - 3];
  if (endMark != kEndMark) return "its end mark is " + upperHex({&endMark, 1}) + ", not 7E";
  const std::uint16_t crc = rcpFrameCrc(bytes.subspan(1, bytes.size() - 3));
  if (rcpFrameCrc(bytes.subspan(1)) != 0) {
    return "its CRC is " + upperHex(bytes.last(2)) + ", right would be " + hexOfCrc(crc);
  }
  return "";
}

std::string describeFrame(std::span<const std::uint8_t> bytes) {
  if (const std::string reason = whyNoFrame(bytes); !reason.empty()) {
    return "no whole frame: " + reason;
  }
  return "type " + upperHex(bytes.subspan(1, 1)) + ", code " + upperHex(bytes.subspan(2, 1)) +
         ", " + countOf(payloadLength(bytes), "byte") + " of payload";
}

}  // namespace kestrin::app
