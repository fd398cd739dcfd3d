// One link between the host and a device, as the controller keeps it.
//
// Threads: the run loop's. Lifetime: made when the link comes up, gone when it is down; the device
// does not outlive it in `connected`.
// Errors: what is malformed is dropped.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

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

class Link final : public LinkEnd {
 public:
  using HostSink = std::function<void(const Bytes&)>;
  using DropRequest = std::function<void(Link&, std::uint8_t reason)>;

  Link(std::uint16_t handle, std::shared_ptr<RemoteDevice> device, ConnectionParameters parameters,
       HostSink toHost, DropRequest onDrop);

  /// One ACL packet from the host.
  void take(const AclPacket& packet);
  [[nodiscard]] RemoteDevice& device() const noexcept { return *device_; }
  [[nodiscard]] const ConnectionParameters& parameters() const noexcept { return parameters_; }
  void setParameters(ConnectionParameters parameters) { parameters_ = parameters; }

  void send(ByteView attPdu) override { sendOn(L2capChannel::attributeProtocol, attPdu); }
  void drop(std::uint8_t reason) override { onDrop_(*this, reason); }
  [[nodiscard]] std::chrono::milliseconds supervisionTimeout() const override;
  [[nodiscard]] std::uint16_t handle() const override { return handle_; }

  /// The largest data of one ACL packet, both ways: what a link with the data length extension
  /// carries at once (Bluetooth Core Document, Vol 6, Part B, 4.5.10).
  static constexpr std::size_t kLargestAclData = 251;

 private:
  void sendOn(L2capChannel channel, ByteView payload);

  const std::uint16_t handle_;
  const std::shared_ptr<RemoteDevice> device_;
  ConnectionParameters parameters_;
  const HostSink toHost_;
  const DropRequest onDrop_;
  L2capReassembler reassembler_;
};

}  // namespace kestrin::vreader
