#include "tools/vreader/Link.h"

#include <algorithm>
#include <utility>

namespace kestrin::vreader {

Link::Link(std::uint16_t handle, std::shared_ptr<RemoteDevice> device,
           ConnectionParameters parameters, Surroundings surroundings)
    : handle_(handle),
      device_(std::move(device)),
      parameters_(parameters),
      surroundings_(std::move(surroundings)) {}

Link::~Link() {
  if (arrivalTimer_) surroundings_.runLoop->cancel(*arrivalTimer_);
}

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
  // The packet type, the handle and the length are between host and controller only.
  constexpr std::size_t kAclHeader = 5;
  for (Bytes& packet : aclPackets(handle_, channel, payload, kLargestAclData)) {
    if (surroundings_.air == Air::none) {
      surroundings_.toHost(packet);
      continue;
    }
    airIsFree_ =
        std::max(airIsFree_, surroundings_.runLoop->now()) + airTime(packet.size() - kAclHeader);
    onAir_.push_back({std::move(packet), airIsFree_});
  }
  if (!onAir_.empty() && !arrivalTimer_) waitForArrival();
}

void Link::waitForArrival() {
  const Time now = surroundings_.runLoop->now();
  arrivalTimer_ = surroundings_.runLoop->arm(std::max(onAir_.front().arrival - now, Time::zero()),
                                             [this] { arrive(); });
}

void Link::arrive() {
  arrivalTimer_.reset();
  const Time now = surroundings_.runLoop->now();
  while (!onAir_.empty() && onAir_.front().arrival <= now) {
    const Bytes packet = std::move(onAir_.front().packet);
    onAir_.pop_front();
    surroundings_.toHost(packet);
  }
  if (!onAir_.empty()) waitForArrival();
}

std::chrono::milliseconds Link::supervisionTimeout() const {
  return std::chrono::milliseconds(10) * parameters_.supervisionTimeout;
}

}  // namespace kestrin::vreader
