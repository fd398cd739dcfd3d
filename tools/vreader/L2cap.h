// The basic mode of L2CAP on an LE link: frames with a length and a channel, cut into ACL data
// packets and put together again (Bluetooth Core Document, Vol 3, Part A, 3.1 and Vol 4, Part E,
// 5.4.2).
//
// Threads: one at a time. Lifetime: plain values.
// Errors: what breaks the rules of cutting is dropped as a whole; the next start is taken again.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "tools/vreader/Bytes.h"
#include "tools/vreader/Hci.h"

namespace kestrin::vreader {

/// The fixed channels of an LE link (Vol 3, Part A, 2.1).
enum class L2capChannel : std::uint16_t {
  attributeProtocol = 0x0004,
  leSignaling = 0x0005,
  securityManager = 0x0006,
};

struct L2capFrame {
  std::uint16_t channel = 0;
  Bytes payload;
};

/// One ACL data packet, without the packet type before it.
struct AclPacket {
  /// The connection handle, 12 bits.
  std::uint16_t handle = 0;
  hci::PacketBoundary boundary = hci::PacketBoundary::firstNonFlushable;
  Bytes data;

  /// Reads a packet; absent when it is cut short or its length field tells something else.
  static std::optional<AclPacket> parse(ByteView packet);
};

/// Puts the frames of one link together.
class L2capReassembler {
 public:
  /// Takes the data of one ACL packet; gives the frame that it completes.
  std::optional<L2capFrame> take(hci::PacketBoundary boundary, ByteView data);

 private:
  Bytes waiting_;  // From the L2CAP header on; empty between frames.
};

/// Cuts one frame into ACL packets, with the packet type before each, of at most `largestData`
/// bytes of data. Data towards the host starts with the flushable flag, as LE controllers send it.
std::vector<Bytes> aclPackets(std::uint16_t handle, L2capChannel channel, ByteView payload,
                              std::size_t largestData);

/// What this device answers on the signaling channel: it takes no connection-oriented channels and
/// no parameter requests, so every request is rejected. Absent for what needs no answer.
std::optional<Bytes> signalingAnswer(ByteView request);
/// What this device answers on the security manager's channel: it does not pair.
std::optional<Bytes> securityManagerAnswer(ByteView request);

}  // namespace kestrin::vreader
