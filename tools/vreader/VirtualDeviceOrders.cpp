// What orders make a virtual device do.

#include <algorithm>
#include <utility>

#include "KestrinBLESDK/RcpFrame.h"
#include "tools/vreader/VirtualDevice.h"

namespace kestrin::vreader {

VirtualDevice::Refusal VirtualDevice::drop(std::uint8_t reason) {
  if (!session_) return "it has no link";
  session_->link.drop(reason);
  return std::nullopt;
}

void VirtualDevice::setSilent(bool silent) {
  silent_ = silent;
  answersLeft_.reset();
}

void VirtualDevice::vanish() {
  if (!std::exchange(inRange_, false) || !session_) return;
  supervisionTimer_ = runLoop_->arm(session_->link.supervisionTimeout(), [this] {
    supervisionTimer_.reset();
    session_->link.drop(static_cast<std::uint8_t>(hci::ErrorCode::connectionTimeout));
  });
}

void VirtualDevice::comeBack() {
  inRange_ = true;
  cancelTimer(supervisionTimer_);
}

void VirtualDevice::refuse(AttServer::Access access, std::optional<std::uint8_t> errorCode) {
  if (errorCode) {
    refusals_[access] = *errorCode;
  } else {
    refusals_.erase(access);
  }
}

VirtualDevice::Refusal VirtualDevice::notify(ByteView value) {
  if (auto reason = whyNoNotification(rxHandle_, value.size())) return reason;
  sendNotification(rxHandle_, value);
  return std::nullopt;
}

VirtualDevice::Refusal VirtualDevice::notifyTx(ByteView value) {
  if (auto reason = whyNoNotification(txHandle_, value.size())) return reason;
  sendNotification(txHandle_, value);
  return std::nullopt;
}

VirtualDevice::Refusal VirtualDevice::burst(const Burst& burst) {
  if (auto reason = whyNoNotification(rxHandle_, burst.longest.value_or(burst.length))) {
    return reason;
  }
  if (burst_) return "its last burst is still going on";
  burst_ = RunningBurst{burst};
  continueBurst();
  return std::nullopt;
}

void VirtualDevice::continueBurst() {
  RunningBurst& running = *burst_;
  const std::uint32_t left = running.wanted.count - running.sent;
  // Silence and absence lose what is sent meanwhile, as they do on the air.
  for (std::uint32_t i = 0; i < std::min(left, running.wanted.perEvent); ++i) {
    const std::uint32_t index = running.sent++;
    const Bytes value = burstValue(index, running.wanted.lengthOf(index));
    if (isHeard()) sendNotification(rxHandle_, value);
  }
  if (running.sent == running.wanted.count) {
    tell("BURST-SENT", std::to_string(running.sent));
    burst_.reset();
    return;
  }
  burstTimer_ = runLoop_->arm(running.wanted.interval, [this] {
    burstTimer_.reset();
    continueBurst();
  });
}

Bytes VirtualDevice::burstValue(std::uint32_t index, std::size_t length) {
  constexpr std::uint8_t kNotificationType = 0x02;
  constexpr std::size_t kIndexSize = 4;
  Bytes content(length >= rcp::kSmallestFrame + kIndexSize ? length - rcp::kSmallestFrame : length);
  if (content.size() < length) {
    for (std::size_t i = 0; i < kIndexSize; ++i) {
      content[i] = static_cast<std::uint8_t>(index >> (8 * (kIndexSize - 1 - i)));
    }
    const auto frame = buildRcpFrame(kNotificationType, 0x00, content);
    return {frame->begin(), frame->end()};
  }
  for (std::size_t i = 0; i < std::min(length, kIndexSize); ++i) {
    content[i] = static_cast<std::uint8_t>(index >> (8 * i));
  }
  return content;
}

}  // namespace kestrin::vreader
