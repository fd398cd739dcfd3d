#include "tools/vreader/Link.h"

#include <utility>

namespace kestrin::vreader {

Link::Link(std::uint16_t handle, std::shared_ptr<RemoteDevice> device,
           ConnectionParameters parameters, HostSink toHost, DropRequest onDrop)
    : handle_(handle),
      device_(std::move(device)),
      parameters_(parameters),
      toHost_(std::move(toHost)),
      onDrop_(std::move(onDrop)) {}

void Link::take(const AclPacket& packet) {
  const auto frame = reassembler_.take(packet.boundary, packet.data);
  if (!frame) return;
  const auto channel = static_cast<L2capChannel>(frame->channel);
  std::optional<Bytes> answer;
  switch (channel) {
    case L2capChannel::attributeProtocol:
      device_->received(frame->payload);
      return;
    case L2capChannel::leSignaling:
      answer = signalingAnswer(frame->payload);
      break;
    case L2capChannel::securityManager:
      answer = securityManagerAnswer(frame->payload);
      break;
  }
  if (answer) sendOn(channel, *answer);
}

void Link::sendOn(L2capChannel channel, ByteView payload) {
  for (const Bytes& packet : aclPackets(handle_, channel, payload, kLargestAclData)) {
    toHost_(packet);
  }
}

std::chrono::milliseconds Link::supervisionTimeout() const {
  return std::chrono::milliseconds(10) * parameters_.supervisionTimeout;
}

}  // namespace kestrin::vreader
