// One link between the host and a device, as the controller keeps it. What the device sends takes
// its time on the air, one packet after another; what is not through when the link goes down is
// lost.
//
// Threads: the run loop's. Lifetime: made when the link comes up, gone when it is down; the device
// does not outlive it in `connected`.
// Errors: what is malformed is dropped.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>

#include "KestrinBLESDK/platform/RunLoop.h"
#include "tools/vreader/Bytes.h"
#include "tools/vreader/L2cap.h"
#include "tools/vreader/RemoteDevice.h"

namespace kestrin::vreader {

/// The parameters of a connection in the units of HCI: 1.25 ms for the interval, events for the
/// latency, 10 ms for the supervision timeout.
struct ConnectionParameters {
  std::uint16_t interval = 0;
  std::uint16_t latency = 0;
  std::uint16_t supervisionTimeout = 0;
};

/// How long a packet is on its way from a device to the controller.
enum class Air {
  /// As on the 1 Mbit/s radio: the packet, its acknowledgement and the gaps between them (Bluetooth
  /// Core Document, Vol 6, Part B, 2.1 and 4.1).
  oneMegabit,
  /// No time at all, as no controller can do it.
  none,
};

class Link final : public LinkEnd {
 public:
  using HostSink = std::function<void(const Bytes&)>;
  using DropRequest = std::function<void(Link&, std::uint8_t reason)>;

  /// Where it belongs: whose time it goes by, and who hears of it.
  struct Surroundings {
    std::shared_ptr<RunLoop> runLoop;
    Air air = Air::oneMegabit;
    HostSink toHost;
    DropRequest onDrop;
  };

  Link(std::uint16_t handle, std::shared_ptr<RemoteDevice> device, ConnectionParameters parameters,
       Surroundings surroundings);
  ~Link() override;
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

  /// One ACL packet from the host.
  void take(const AclPacket& packet);
  [[nodiscard]] RemoteDevice& device() const noexcept { return *device_; }
  [[nodiscard]] const ConnectionParameters& parameters() const noexcept { return parameters_; }
  void setParameters(ConnectionParameters parameters) { parameters_ = parameters; }

  void send(ByteView attPdu) override { sendOn(L2capChannel::attributeProtocol, attPdu); }
  void drop(std::uint8_t reason) override { surroundings_.onDrop(*this, reason); }
  [[nodiscard]] std::chrono::milliseconds supervisionTimeout() const override;
  [[nodiscard]] std::uint16_t handle() const override { return handle_; }

  /// The largest data of one ACL packet, both ways: what a link with the data length extension
  /// carries at once (Bluetooth Core Document, Vol 6, Part B, 4.5.10).
  static constexpr std::size_t kLargestAclData = 251;
  /// How long a packet with so many bytes of data has the air of the 1 Mbit/s radio.
  static constexpr Time airTime(std::size_t data) {
    // Around the data preamble, access address, header and checksum; the acknowledgement is a
    // packet without data.
    constexpr std::size_t kAround = 10;
    constexpr auto kByte = std::chrono::microseconds(8);
    constexpr auto kGap = std::chrono::microseconds(150);
    return kByte * (kAround + data) + kGap + kByte * kAround + kGap;
  }

 private:
  /// A packet for the host, and when it is through the air.
  struct Sent {
    Bytes packet;
    Time arrival{};
  };

  void sendOn(L2capChannel channel, ByteView payload);
  void waitForArrival();
  void arrive();

  const std::uint16_t handle_;
  const std::shared_ptr<RemoteDevice> device_;
  ConnectionParameters parameters_;
  const Surroundings surroundings_;
  L2capReassembler reassembler_;
  std::deque<Sent> onAir_;
  Time airIsFree_{};
  std::optional<RunLoop::TimerId> arrivalTimer_;
};

}  // namespace kestrin::vreader
