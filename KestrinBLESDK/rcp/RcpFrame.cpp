#include "KestrinBLESDK/RcpFrame.h"

#include <string>
#include <vector>

#include "KestrinBLESDK/rcp/FrameLayout.h"

namespace kestrin {
namespace {

using Bytes = std::span<const std::uint8_t>;

std::string hex(Bytes bytes) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (const std::uint8_t byte : bytes) {
    if (!text.empty()) text += ' ';
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0x0F];
  }
  return text;
}

std::string hex(std::uint16_t crc) {
  const std::uint8_t bytes[] = {static_cast<std::uint8_t>(crc >> 8),
                                static_cast<std::uint8_t>(crc & 0xFF)};
  return hex(bytes);
}

std::string countOf(std::size_t count) {
  return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

/// Bytes that a frame is sought in, and what keeps them from being one.
class Examined final {
 public:
  explicit Examined(Bytes bytes) noexcept : bytes_(bytes) {}

  /// The first thing that is wrong; absent when the bytes are one whole frame. The text is left to
  /// `describe`: many ask only whether.
  [[nodiscard]] std::optional<RcpFrameError> fault() const {
    const std::size_t size = bytes_.size();
    if (size > 0 && bytes_[0] != rcp::kPreamble) return wrong(RcpFrameField::preamble, 0);
    if (size < rcp::kHeaderLength) return missing(headerField(size));
    if (size > total()) return wrongLength();
    if (size <= endMark()) {
      return missing(size < endMark() ? RcpFrameField::payload : RcpFrameField::endMark);
    }
    const bool marked = bytes_[endMark()] == rcp::kEndMark;
    if (size < total()) return marked ? missing(RcpFrameField::crc) : wrongLength();
    if (!marked) return wrong(RcpFrameField::endMark, endMark());
    // Run over its own two bytes too the CRC comes out as zero; the preamble is not covered.
    if (rcp::crcOver(bytes_.subspan(rcp::kTypePlace)) == 0) return std::nullopt;
    return wrong(RcpFrameField::crc, endMark() + 1);
  }

  [[nodiscard]] RcpFrame frame() const noexcept {
    return {.type = bytes_[rcp::kTypePlace],
            .code = bytes_[rcp::kCodePlace],
            .payload = bytes_.subspan(rcp::kHeaderLength, payloadLength()),
            .bytes = bytes_};
  }

  [[nodiscard]] std::string describe(const RcpFrameError& error) const {
    const std::size_t size = bytes_.size();
    if (size == 0) return "it is empty";
    if (error.field == RcpFrameField::preamble) return "it does not begin with BB";
    if (error.field == RcpFrameField::endMark && !error.incomplete) {
      return "its end mark is " + hex(bytes_.subspan(endMark(), 1)) + ", not 7E";
    }
    if (error.field == RcpFrameField::crc && !error.incomplete) {
      const auto covered = bytes_.subspan(rcp::kTypePlace, endMark());
      return "its CRC is " + hex(bytes_.last(2)) + ", right would be " + hex(rcp::crcOver(covered));
    }
    if (size < rcp::kSmallestFrame) {
      return "it has " + countOf(size) + ", the shortest frame has 8";
    }
    return "its length field says " + countOf(payloadLength()) + " of payload, it has " +
           std::to_string(size - rcp::kSmallestFrame);
  }

  [[nodiscard]] std::size_t total() const noexcept {
    return rcp::kHeaderLength + payloadLength() + rcp::kTrailerLength;
  }

 private:
  [[nodiscard]] static RcpFrameError wrong(RcpFrameField field, std::size_t offset) {
    return {.field = field, .offset = offset, .incomplete = false, .text = {}};
  }
  [[nodiscard]] static RcpFrameError wrongLength() {
    return wrong(RcpFrameField::payloadLength, rcp::kPayloadLengthPlace);
  }
  [[nodiscard]] RcpFrameError missing(RcpFrameField field) const {
    return {.field = field, .offset = bytes_.size(), .incomplete = true, .text = {}};
  }
  [[nodiscard]] static RcpFrameField headerField(std::size_t place) noexcept {
    if (place >= rcp::kPayloadLengthPlace) return RcpFrameField::payloadLength;
    if (place == rcp::kCodePlace) return RcpFrameField::code;
    return place == rcp::kTypePlace ? RcpFrameField::type : RcpFrameField::preamble;
  }
  [[nodiscard]] std::size_t payloadLength() const noexcept {
    return static_cast<std::size_t>(bytes_[rcp::kPayloadLengthPlace] << 8 |
                                    bytes_[rcp::kPayloadLengthPlace + 1]);
  }
  [[nodiscard]] std::size_t endMark() const noexcept {
    return rcp::kHeaderLength + payloadLength();
  }

  const Bytes bytes_;
};

}  // namespace

std::optional<NSData> buildRcpFrame(std::uint8_t type, std::uint8_t code, Bytes payload,
                                    NSError* error) {
  if (payload.size() > rcp::kLargestPayload) {
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

std::optional<RcpFrame> parseRcpFrame(Bytes bytes, RcpFrameError* error) {
  const Examined examined(bytes);
  auto fault = examined.fault();
  if (!fault) return examined.frame();
  if (error != nullptr) {
    fault->text = examined.describe(*fault);
    *error = std::move(*fault);
  }
  return std::nullopt;
}

std::optional<std::size_t> rcpFrameLength(Bytes bytes) noexcept {
  if (bytes.size() < rcp::kHeaderLength || bytes[0] != rcp::kPreamble) return std::nullopt;
  return Examined(bytes).total();
}

std::uint16_t rcpFrameCrc(Bytes bytes) noexcept { return rcp::crcOver(bytes); }

}  // namespace kestrin
