// What the controller sees of a device on the other side of the air, and what that device sees of
// its link.
//
// Threads: the run loop's. Lifetime: a device outlives the controller's use of it; a link is valid
// from `connected` until `disconnected` returns.
// Errors: none.
#pragma once

#include <chrono>
#include <cstdint>

#include "tools/vreader/Bytes.h"
#include "tools/vreader/DeviceAddress.h"
#include "tools/vreader/Hci.h"

namespace kestrin::vreader {

/// The device's end of a link.
class LinkEnd {
 public:
  virtual ~LinkEnd() = default;
  /// Sends one ATT PDU to the host.
  virtual void send(ByteView attPdu) = 0;
  /// Ends the link; the host is told this reason. `disconnected` is called before this returns.
  virtual void drop(std::uint8_t reason) = 0;
  /// How long the link stays up when the device is no longer heard.
  [[nodiscard]] virtual std::chrono::milliseconds supervisionTimeout() const = 0;
  /// The connection handle.
  [[nodiscard]] virtual std::uint16_t handle() const = 0;
};

class RemoteDevice {
 public:
  virtual ~RemoteDevice() = default;
  [[nodiscard]] virtual const DeviceAddress& address() const = 0;
  /// Whether it advertises just now; a device that does can be connected to.
  [[nodiscard]] virtual bool advertises() const = 0;
  /// What its advertisement and its scan response carry, at most 31 bytes each.
  [[nodiscard]] virtual Bytes advertisingData() const = 0;
  [[nodiscard]] virtual Bytes scanResponseData() const = 0;
  /// A link came up, went down.
  virtual void connected(LinkEnd& link) = 0;
  virtual void disconnected(std::uint8_t reason) = 0;
  /// One ATT PDU came from the host.
  virtual void received(ByteView attPdu) = 0;
};

}  // namespace kestrin::vreader
