#include "tools/kestrin/text/Frames.h"

#include <KestrinBLESDK/RcpFrame.h>

#include "tools/kestrin/text/Hex.h"

namespace kestrin::app {

std::string countOf(std::uint64_t count, const std::string& thing) {
  return std::to_string(count) + ' ' + thing + (count == 1 ? "" : "s");
}

std::string whyNoFrame(std::span<const std::uint8_t> bytes) {
  RcpFrameError error;
  return parseRcpFrame(bytes, &error) ? "" : error.text;
}

std::string describeFrame(std::span<const std::uint8_t> bytes) {
  RcpFrameError error;
  const auto frame = parseRcpFrame(bytes, &error);
  if (!frame) return "no whole frame: " + error.text;
  return "type " + upperHex({&frame->type, 1}) + ", code " + upperHex({&frame->code, 1}) + ", " +
         countOf(frame->payload.size(), "byte") + " of payload";
}

}  // namespace kestrin::app
