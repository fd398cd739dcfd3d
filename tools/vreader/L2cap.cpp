#include "tools/vreader/L2cap.h"

namespace kestrin::vreader {

namespace {

constexpr std::size_t kHeaderSize = 4;
constexpr unsigned kHandleMask = 0x0FFF;

// Signaling codes (Vol 3, Part A, 4): requests are even up to the LE credit based connection
// request, then the two of the enhanced credit based mode. All else is a response or needs none.
bool isRequest(unsigned signalingCode) {
  constexpr unsigned kLeCreditBasedConnectionRequest = 0x14;
  constexpr unsigned kCreditBasedConnectionRequest = 0x17;
  constexpr unsigned kCreditBasedReconfigureRequest = 0x19;
  return (signalingCode <= kLeCreditBasedConnectionRequest && signalingCode % 2 == 0) ||
         signalingCode == kCreditBasedConnectionRequest ||
         signalingCode == kCreditBasedReconfigureRequest;
}

std::size_t frameSize(ByteView start) {
  ByteReader header(start);
  return kHeaderSize + header.u16();
}

}  // namespace

std::optional<AclPacket> AclPacket::parse(ByteView packet) {
  ByteReader reader(packet);
  const unsigned handleAndFlags = reader.u16();
  const std::size_t length = reader.u16();
  const ByteView data = reader.rest();
  if (reader.overrun() || data.size() != length) return std::nullopt;
  AclPacket parsed;
  parsed.handle = static_cast<std::uint16_t>(handleAndFlags & kHandleMask);
  parsed.boundary = static_cast<hci::PacketBoundary>((handleAndFlags >> 12) & 0b11);
  parsed.data.assign(data.begin(), data.end());
  return parsed;
}

std::optional<L2capFrame> L2capReassembler::take(hci::PacketBoundary boundary, ByteView data) {
  if (boundary != hci::PacketBoundary::continuing) {
    waiting_.clear();
  } else if (waiting_.empty()) {
    return std::nullopt;  // The rest of a frame whose start was dropped.
  }
  waiting_.insert(waiting_.end(), data.begin(), data.end());
  // A start may be cut inside the header; then the length is not known yet.
  if (waiting_.size() < kHeaderSize || waiting_.size() < frameSize(waiting_)) return std::nullopt;

  const Bytes whole = std::exchange(waiting_, {});
  if (whole.size() > frameSize(whole)) return std::nullopt;
  ByteReader reader(whole);
  reader.u16();
  L2capFrame frame;
  frame.channel = reader.u16();
  const ByteView payload = reader.rest();
  frame.payload.assign(payload.begin(), payload.end());
  return frame;
}

std::vector<Bytes> aclPackets(std::uint16_t handle, L2capChannel channel, ByteView payload,
                              std::size_t largestData) {
  const Bytes frame = ByteWriter()
                          .u16(static_cast<unsigned>(payload.size()))
                          .u16(static_cast<unsigned>(channel))
                          .append(payload)
                          .take();
  std::vector<Bytes> packets;
  ByteView left = frame;
  auto boundary = hci::PacketBoundary::firstFlushable;
  while (!left.empty()) {
    const ByteView piece = left.first(std::min(left.size(), largestData));
    left = left.subspan(piece.size());
    packets.push_back(ByteWriter()
                          .u8(static_cast<unsigned>(hci::PacketType::aclData))
                          .u16((handle & kHandleMask) | (static_cast<unsigned>(boundary) << 12))
                          .u16(static_cast<unsigned>(piece.size()))
                          .append(piece)
                          .take());
    boundary = hci::PacketBoundary::continuing;
  }
  return packets;
}

std::optional<Bytes> signalingAnswer(ByteView request) {
  // Vol 3, Part A, 4.1: code, identifier, length, data; the reason 0x0000 is "not understood".
  constexpr unsigned kCommandReject = 0x01;
  constexpr unsigned kNotUnderstood = 0x0000;
  ByteReader reader(request);
  const unsigned code = reader.u8();
  const unsigned identifier = reader.u8();
  const std::size_t length = reader.u16();
  if (reader.overrun() || reader.left() != length) return std::nullopt;
  if (!isRequest(code)) return std::nullopt;
  return ByteWriter().u8(kCommandReject).u8(identifier).u16(2).u16(kNotUnderstood).take();
}

std::optional<Bytes> securityManagerAnswer(ByteView request) {
  // Vol 3, Part H, 3.5.5: Pairing Failed, with the reason "Pairing Not Supported".
  constexpr std::uint8_t kPairingRequest = 0x01;
  constexpr std::uint8_t kPairingFailed = 0x05;
  constexpr std::uint8_t kPairingNotSupported = 0x05;
  if (request.empty() || request.front() != kPairingRequest) return std::nullopt;
  return Bytes{kPairingFailed, kPairingNotSupported};
}

}  // namespace kestrin::vreader
