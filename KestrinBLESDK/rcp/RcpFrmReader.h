// The state of the frame parser while it scans the receive buffer. It lives for one scan.
#pragma once

#include <cstdint>

namespace kestrin {

/// Which byte of a frame the parser expects.
enum class RcpFrmState : std::int32_t {
  Preamble = 0,
  MessageType = 1,
  Code = 2,
  LengthHigh = 3,
  LengthLow = 4,
  Payload = 5,
  EndMark = 6,
  CrcHigh = 7,
  CrcLow = 8,
};

/// The frame-reader record.
struct RcpFrmReader {
  RcpFrmState state = RcpFrmState::Preamble;
  /// Bytes counted in the current frame; the preamble is the first.
  std::uint16_t count = 0;
  /// The payload length of the current frame.
  std::uint16_t length = 0;
};

}  // namespace kestrin
