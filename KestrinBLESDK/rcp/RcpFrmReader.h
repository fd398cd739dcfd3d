// The frame-reader record: how far the parser has come in a frame. Nothing of it outlives a parse.
#pragma once

#include <cstdint>

namespace kestrin {

/// The bytes of a frame in the order in which the parser expects them.
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

/// As it stands while the parser looks at a byte of a frame; all zero before a frame.
struct RcpFrmReader {
  /// The byte that is looked at.
  RcpFrmState state = RcpFrmState::Preamble;
  /// Bytes of the frame up to and with that one; the preamble is the first.
  std::uint16_t count = 0;
  /// The frame's payload length, once it was read.
  std::uint16_t length = 0;
};

}  // namespace kestrin
