// The ATT server of one link: a request goes in, its answer comes out (Bluetooth Core Document,
// Vol 3, Part F, 3.4). It knows nothing of links and packets below.
//
// Threads: one at a time.
// Lifetime: made when a link comes up and gone with it, and so are the MTU and the subscriptions.
// The database and the application outlive it.
// Errors: a malformed request is answered with the error that the protocol has for it; nothing is
// read beyond its end.
#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "tools/vreader/Att.h"
#include "tools/vreader/AttributeDatabase.h"
#include "tools/vreader/Bytes.h"

namespace kestrin::vreader {

class AttServer {
 public:
  /// What a client may be refused.
  enum class Access { read, write, subscribe };
  /// How a client writes: and waits for the answer, or does not.
  enum class WriteType { request, command };

  /// The device behind the server.
  class Application {
   public:
    virtual ~Application() = default;
    /// The error code that an access is refused with; absent when it is allowed. Asked for what the
    /// database allows.
    virtual std::optional<std::uint8_t> refusal(Access access) = 0;
    /// A value was read; called before the client gets it.
    virtual void wasRead(const Attribute& attribute) = 0;
    /// A value was written; called before the answer of a request is sent.
    virtual void wasWritten(const Attribute& attribute, ByteView value, WriteType type) = 0;
    /// A value came in a request although its characteristic takes none; it is refused.
    virtual void writeNotPermitted(const Attribute& attribute, ByteView value) = 0;
    /// A client characteristic configuration was written: the bits of `att::kNotifications` and
    /// `att::kIndications`.
    virtual void subscriptionChanged(const Attribute& configuration, unsigned bits) = 0;
    /// The MTU was agreed on.
    virtual void mtuExchanged(std::size_t mtu) = 0;
  };

  AttServer(const AttributeDatabase& database, Application& application,
            std::size_t largestMtu = att::kServerMtu)
      : database_(database), application_(application), largestMtu_(largestMtu) {}

  /// The answer to one PDU; absent for what gets none (commands, confirmations, stray responses).
  std::optional<Bytes> answer(ByteView pdu);
  /// A notification of a value; absent when the client has not subscribed to it, or when the value
  /// is longer than the MTU allows.
  [[nodiscard]] std::optional<Bytes> notification(std::uint16_t valueHandle, ByteView value) const;
  /// Whether the client has asked for notifications of a value.
  [[nodiscard]] bool notifies(std::uint16_t valueHandle) const;
  /// The longest value that fits a notification.
  [[nodiscard]] std::size_t largestNotification() const noexcept { return mtu_ - 3; }
  [[nodiscard]] std::size_t mtu() const noexcept { return mtu_; }

 private:
  Bytes exchangeMtu(ByteReader request);
  Bytes findInformation(ByteReader request) const;
  Bytes findByTypeValue(ByteReader request) const;
  Bytes readByType(ByteReader request);
  Bytes readByGroupType(ByteReader request) const;
  Bytes read(ByteReader request);
  Bytes readBlob(ByteReader request);
  Bytes write(ByteReader request);
  void writeCommand(ByteReader request);

  Bytes readFrom(att::Opcode request, std::uint16_t handle, std::size_t offset);
  [[nodiscard]] std::optional<std::uint8_t> readRefusal(const Attribute& attribute) const;
  [[nodiscard]] Bytes valueOf(const Attribute& attribute) const;
  std::optional<std::uint8_t> store(const Attribute& attribute, ByteView value, WriteType type);
  std::optional<std::uint8_t> configure(const Attribute& attribute, ByteView value);

  const AttributeDatabase& database_;
  Application& application_;
  const std::size_t largestMtu_;
  std::size_t mtu_ = att::kDefaultMtu;
  std::map<std::uint16_t, unsigned> configurations_;  // By the handle of the value.
};

}  // namespace kestrin::vreader
