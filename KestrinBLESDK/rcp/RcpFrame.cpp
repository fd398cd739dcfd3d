#include "KestrinBLESDK/RcpFrame.h"

#include <string>
#include <vector>

#include "KestrinBLESDK/rcp/FrameLayout.h"

namespace kestrin {

std::optional<NSData> buildRcpFrame(std::uint8_t type, std::uint8_t code,
                                    std::span<const std::uint8_t> payload, NSError* error) {
  if (payload.size() > kRcpLargestPayload) {
    if (error != nullptr) {
      *error = {KestrinErrorDomain, 2,
                "a payload of " + std::to_string(payload.size()) +
                    " bytes does not fit a frame; it may have at most 65535"};
    }
    return std::nullopt;
  }
  std::vector<std::uint8_t> frame;
  frame.reserve(rcp::kHeaderLength + payload.size() + rcp::kTrailerLength);
  frame.push_back(rcp::kPreamble);
  frame.push_back(type);
  frame.push_back(code);
  frame.push_back(static_cast<std::uint8_t>(payload.size() >> 8));
  frame.push_back(static_cast<std::uint8_t>(payload.size() & 0xFF));
  frame.insert(frame.end(), payload.begin(), payload.end());
  frame.push_back(rcp::kEndMark);
  // The preamble is not covered.
  const std::uint16_t crc = rcp::crcOver(std::span(frame).subspan(1));
  frame.push_back(static_cast<std::uint8_t>(crc >> 8));
  frame.push_back(static_cast<std::uint8_t>(crc & 0xFF));
  return NSData(frame);
}

std::uint16_t rcpFrameCrc(std::span<const std::uint8_t> bytes) noexcept {
  return rcp::crcOver(bytes);
}

}  // namespace kestrin
