// One virtual device: a reader of either family, or a peripheral that is not a reader. It
// advertises, serves its attributes, plays the reader script, and does what orders ask of it.
//
// Threads: the run loop's.
// Lifetime: its timers end with it; it outlives its link.
// Errors: an order that cannot be carried out returns why. Nothing is thrown.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestrinBLESDK/platform/RunLoop.h"
#include "kestrin/simulated/GattLayout.h"
#include "kestrin/simulated/ReaderScript.h"
#include "tools/vreader/Att.h"
#include "tools/vreader/AttServer.h"
#include "tools/vreader/AttributeDatabase.h"
#include "tools/vreader/RemoteDevice.h"

namespace kestrin::vreader {

struct DeviceSettings {
  /// What orders and event lines call it; without blanks.
  std::string id;
  DeviceAddress address;
  /// The name in the advertisement; absent: it advertises none.
  std::optional<std::string> advertisedName;
  /// The name that is read over a link; absent: that of the layout.
  std::optional<std::string> gapName;
  /// The family of a reader; absent: no reader.
  std::optional<simulated::ReaderFamily> family;
  /// The property mask of a reader's TX characteristic; absent: that of the layout.
  std::optional<CBCharacteristicProperties> txProperties = std::nullopt;
  /// The size of the notifications that a reader's reply leaves in, where the link has room for it:
  /// by default what fits a link whose MTU was never raised.
  std::size_t replySize = att::kDefaultMtu - 3;
  /// Whether each notification is told as an event.
  bool tellsNotifications = false;
};

/// Notifications in a row.
struct Burst {
  std::uint32_t count = 0;
  /// The length of each value; of the first one where they grow.
  std::size_t length = 0;
  /// Values grow by a byte each up to this length and begin again; absent: they do not grow.
  std::optional<std::size_t> longest = std::nullopt;
  /// How many leave together, and how long after them the next.
  std::uint32_t perEvent = 6;
  std::chrono::milliseconds interval{8};

  [[nodiscard]] std::size_t lengthOf(std::uint32_t index) const {
    return longest ? length + index % (*longest - length + 1) : length;
  }
};

class VirtualDevice final : public RemoteDevice, private AttServer::Application {
 public:
  /// Gets one line per thing that happens.
  using EventSink = std::function<void(const std::string&)>;
  /// Why an order was not carried out; absent when it was.
  using Refusal = std::optional<std::string>;

  VirtualDevice(std::shared_ptr<RunLoop> runLoop, DeviceSettings settings, EventSink events);
  ~VirtualDevice() override;
  VirtualDevice(const VirtualDevice&) = delete;
  VirtualDevice& operator=(const VirtualDevice&) = delete;

  [[nodiscard]] const std::string& id() const noexcept { return settings_.id; }
  /// What it is, for a person.
  [[nodiscard]] std::string description() const;

  // Orders.
  Refusal drop(std::uint8_t reason);
  void setSilent(bool silent);
  /// Falls silent when it has answered so many requests more, at least one.
  void setSilentAfter(std::uint32_t answers) { answersLeft_ = answers; }
  void vanish();
  void comeBack();
  void rename(std::optional<std::string> name) { settings_.advertisedName = std::move(name); }
  void setAdvertising(bool advertising) { advertising_ = advertising; }
  /// Refuses an access with an ATT error code from now on; absent: allows it again.
  void refuse(AttServer::Access access, std::optional<std::uint8_t> errorCode);
  /// Notifies a value on the characteristic that a reader's replies travel on.
  Refusal notify(ByteView value);
  /// Notifies a value on the one that the host writes its commands to, where it can notify too.
  Refusal notifyTx(ByteView value);
  Refusal burst(const Burst& burst);
  /// Begins such a burst of its own as soon as the host has subscribed, from now on; absent: no
  /// more.
  void greet(const std::optional<Burst>& greeting) { greeting_ = greeting; }

  /// The value of a burst's notification: an RCP frame of message type 0x02 and code 0x00 whose
  /// payload begins with `index` in four bytes, most significant first, and goes on with zeros.
  /// Where `length` has no room for such a frame (12 bytes), the index's bytes alone, from the
  /// least significant on, and zeros.
  static Bytes burstValue(std::uint32_t index, std::size_t length);

  // RemoteDevice.
  [[nodiscard]] const DeviceAddress& address() const override { return settings_.address; }
  [[nodiscard]] bool advertises() const override;
  [[nodiscard]] Bytes advertisingData() const override;
  [[nodiscard]] Bytes scanResponseData() const override;
  void connected(LinkEnd& link) override;
  void disconnected(std::uint8_t reason) override;
  void received(ByteView attPdu) override;

 private:
  // A link and what lives as long as it.
  struct Session {
    Session(LinkEnd& itsLink, const AttributeDatabase& database,
            AttServer::Application& application)
        : link(itsLink), server(database, application) {}
    LinkEnd& link;
    AttServer server;
  };
  struct RunningBurst {
    Burst wanted;
    std::uint32_t sent = 0;
  };

  std::optional<std::uint8_t> refusal(AttServer::Access access) override;
  void wasRead(const Attribute& attribute) override;
  void wasWritten(const Attribute& attribute, ByteView value, AttServer::WriteType type) override;
  void writeNotPermitted(const Attribute& attribute, ByteView value) override;
  void subscriptionChanged(const Attribute& configuration, unsigned bits) override;
  void mtuExchanged(std::size_t mtu) override;

  void buildDatabase();
  [[nodiscard]] bool isHeard() const { return inRange_ && !silent_; }
  [[nodiscard]] Bytes nameField() const;
  void sendReplies();
  [[nodiscard]] Refusal whyNoNotification(std::uint16_t handle, std::size_t length) const;
  void sendNotification(std::uint16_t handle, ByteView value);
  void continueBurst();
  void cancelTimer(std::optional<RunLoop::TimerId>& timer);
  void tell(const std::string& event, const std::string& details = {}) const;

  const std::shared_ptr<RunLoop> runLoop_;
  DeviceSettings settings_;
  const EventSink events_;
  AttributeDatabase database_;
  // The values that replies and commands travel on; those of what is not a reader are 0.
  std::uint16_t rxHandle_ = 0;
  std::uint16_t txHandle_ = 0;
  simulated::ReaderConversation conversation_;
  bool inRange_ = true;
  bool advertising_ = true;
  bool silent_ = false;
  std::optional<std::uint32_t> answersLeft_;  // Until it falls silent.
  std::map<AttServer::Access, std::uint8_t> refusals_;
  std::optional<Session> session_;
  std::optional<RunningBurst> burst_;
  std::optional<Burst> greeting_;
  std::optional<RunLoop::TimerId> burstTimer_;
  std::optional<RunLoop::TimerId> supervisionTimer_;
  std::optional<RunLoop::TimerId> replyTimer_;
  std::vector<NSData> replies_;
};

}  // namespace kestrin::vreader
