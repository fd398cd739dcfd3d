#include "tools/vreader/VirtualDevice.h"

#include <algorithm>
#include <array>
#include <utility>

namespace kestrin::vreader {

namespace {

// Advertising data types (Core Supplement, Part A, 1; numbers: Assigned Numbers, 2.3).
constexpr unsigned kFlags = 0x01;
constexpr unsigned kComplete16BitServiceUUIDs = 0x03;
constexpr unsigned kComplete128BitServiceUUIDs = 0x07;
constexpr unsigned kShortenedLocalName = 0x08;
constexpr unsigned kCompleteLocalName = 0x09;
constexpr unsigned kGeneralDiscoverableWithoutBrEdr = 0x06;
constexpr std::size_t kLargestAdvertisingData = 31;

Bytes advertisingField(unsigned type, ByteView data) {
  return ByteWriter().u8(static_cast<unsigned>(data.size() + 1)).u8(type).append(data).take();
}

Bytes serviceField(const CBUUID& service) {
  return advertisingField(
      service.shortUUID() ? kComplete16BitServiceUUIDs : kComplete128BitServiceUUIDs,
      uuidBytes(service));
}

simulated::GattLayout layoutOf(const DeviceSettings& settings) {
  return settings.family ? simulated::readerLayout(*settings.family, settings.txProperties)
                         : simulated::nonReaderLayout();
}

// What is written where, for an event line.
std::string textOf(const Attribute& attribute, ByteView value) {
  return attribute.characteristic.UUIDString() + " " + std::to_string(value.size()) +
         (value.empty() ? "" : " " + hex(value));
}

}  // namespace

VirtualDevice::VirtualDevice(std::shared_ptr<RunLoop> runLoop, DeviceSettings settings,
                             EventSink events)
    : runLoop_(std::move(runLoop)), settings_(std::move(settings)), events_(std::move(events)) {
  buildDatabase();
}

VirtualDevice::~VirtualDevice() {
  cancelTimer(burstTimer_);
  cancelTimer(supervisionTimer_);
  cancelTimer(replyTimer_);
}

void VirtualDevice::buildDatabase() {
  for (const auto& service : layoutOf(settings_)) {
    database_.addService(service.uuid);
    for (const auto& characteristic : service.characteristics) {
      Bytes value(characteristic.value.begin(), characteristic.value.end());
      if (settings_.gapName && characteristic.uuid == CBUUID(att::kDeviceName)) {
        value.assign(settings_.gapName->begin(), settings_.gapName->end());
      }
      const std::uint16_t handle = database_.addCharacteristic(
          characteristic.uuid, static_cast<unsigned>(characteristic.properties), std::move(value));
      if (!settings_.family) continue;
      const auto reader = simulated::readerCharacteristics(*settings_.family);
      if (characteristic.uuid == reader.rx) rxHandle_ = handle;
      if (characteristic.uuid == reader.tx) txHandle_ = handle;
    }
  }
}

std::string VirtualDevice::description() const {
  std::string text = settings_.id + " " + settings_.address.text();
  if (!settings_.family) {
    text += " no reader";
  } else if (*settings_.family == simulated::ReaderFamily::standard) {
    text += " standard reader";
  } else {
    text += " KVR-Q62T reader";
  }
  return settings_.advertisedName ? text + " \"" + *settings_.advertisedName + "\""
                                  : text + " without a name";
}

void VirtualDevice::tell(const std::string& event, const std::string& details) const {
  events_(event + " " + settings_.id + (details.empty() ? "" : " " + details));
}

void VirtualDevice::cancelTimer(std::optional<RunLoop::TimerId>& timer) {
  if (timer) runLoop_->cancel(*std::exchange(timer, std::nullopt));
}

bool VirtualDevice::advertises() const { return inRange_ && advertising_ && !session_; }

Bytes VirtualDevice::nameField() const {
  if (!settings_.advertisedName) return {};
  ByteView name(reinterpret_cast<const std::uint8_t*>(settings_.advertisedName->data()),
                settings_.advertisedName->size());
  const bool whole = name.size() <= kLargestAdvertisingData - 2;
  if (!whole) name = name.first(kLargestAdvertisingData - 2);
  return advertisingField(whole ? kCompleteLocalName : kShortenedLocalName, name);
}

Bytes VirtualDevice::advertisingData() const {
  ByteWriter data;
  data.append(advertisingField(kFlags, Bytes{kGeneralDiscoverableWithoutBrEdr}));
  if (settings_.family) data.append(serviceField(simulated::readerService(*settings_.family)));
  const Bytes name = nameField();
  if (data.size() + name.size() <= kLargestAdvertisingData) data.append(name);
  return data.take();
}

Bytes VirtualDevice::scanResponseData() const {
  // The name stands where it fits: in the advertisement, or else here.
  const Bytes name = nameField();
  const Bytes advertisement = advertisingData();
  const bool inAdvertisement = std::search(advertisement.begin(), advertisement.end(), name.begin(),
                                           name.end()) != advertisement.end();
  return inAdvertisement ? Bytes() : name;
}

void VirtualDevice::connected(LinkEnd& link) {
  session_.emplace(link, database_, static_cast<AttServer::Application&>(*this));
  tell("CONNECTED", "handle=" + hexWord(link.handle()));
}

void VirtualDevice::disconnected(std::uint8_t reason) {
  cancelTimer(burstTimer_);
  cancelTimer(supervisionTimer_);
  cancelTimer(replyTimer_);
  burst_.reset();
  replies_.clear();
  conversation_.reset();
  session_.reset();
  tell("DISCONNECTED",
       "reason=" + hexByte(reason) + " (" + std::string(hci::meaning(reason)) + ")");
}

void VirtualDevice::received(ByteView attPdu) {
  if (!session_ || !isHeard()) return;
  const auto answer = session_->server.answer(attPdu);
  if (!answer) return;
  session_->link.send(*answer);
  if (!answersLeft_ || --*answersLeft_ > 0) return;
  setSilent(true);
  tell("SILENT");
}

std::optional<std::uint8_t> VirtualDevice::refusal(AttServer::Access access) {
  const auto found = refusals_.find(access);
  if (found == refusals_.end()) return std::nullopt;
  constexpr std::array kNames{"reads", "writes", "subscriptions"};
  tell("REFUSED", kNames.at(static_cast<std::size_t>(access)) + (" " + hexByte(found->second)));
  return found->second;
}

void VirtualDevice::wasRead(const Attribute& attribute) {
  tell("READ", attribute.characteristic.UUIDString());
}

void VirtualDevice::subscriptionChanged(const Attribute& configuration, unsigned bits) {
  tell(bits == 0 ? "UNSUBSCRIBED" : "SUBSCRIBED", configuration.characteristic.UUIDString());
  if (bits == 0 || !greeting_ || burst_ || configuration.valueHandle != rxHandle_) return;
  burst_ = RunningBurst{*greeting_};
  // In a turn of its own, so that the answer to the subscription goes first.
  burstTimer_ = runLoop_->arm(Time::zero(), [this] {
    burstTimer_.reset();
    continueBurst();
  });
}

void VirtualDevice::writeNotPermitted(const Attribute& attribute, ByteView value) {
  tell("WRITE-NOT-PERMITTED", textOf(attribute, value));
}

void VirtualDevice::mtuExchanged(std::size_t mtu) { tell("MTU", std::to_string(mtu)); }

void VirtualDevice::wasWritten(const Attribute& attribute, ByteView value,
                               AttServer::WriteType type) {
  const bool isCommand = type == AttServer::WriteType::command;
  tell(isCommand ? "WRITE-COMMAND" : "WRITE", textOf(attribute, value));
  if (!settings_.family ||
      attribute.characteristic != simulated::readerCharacteristics(*settings_.family).tx) {
    return;
  }
  const auto frames = conversation_.take(NSData(value));
  replies_.insert(replies_.end(), frames.begin(), frames.end());
  // In a turn of its own, so that the answer to the write goes first.
  if (!replies_.empty() && !replyTimer_) {
    replyTimer_ = runLoop_->arm(Time::zero(), [this] {
      replyTimer_.reset();
      sendReplies();
    });
  }
}

void VirtualDevice::sendReplies() {
  for (const NSData& frame : std::exchange(replies_, {})) {
    const auto length = std::to_string(frame.length()) + " " + hex(frame.span());
    if (const auto reason = whyNoNotification(rxHandle_, 0)) {
      tell("REPLY-LOST", length + ": " + *reason);
      continue;
    }
    const auto size = std::min(settings_.replySize, session_->server.largestNotification());
    for (const NSData& piece : simulated::cutIntoPieces(frame, size)) {
      sendNotification(rxHandle_, piece.span());
    }
    tell("REPLY", length);
  }
}

VirtualDevice::Refusal VirtualDevice::whyNoNotification(std::uint16_t handle,
                                                        std::size_t length) const {
  if (!settings_.family) return "it is not a reader";
  if (!session_) return "it has no link";
  if (!isHeard()) return inRange_ ? "it is silent" : "it is out of range";
  if (!session_->server.notifies(handle)) return "the host has not subscribed";
  const std::size_t most = session_->server.largestNotification();
  if (length > most) {
    return "a notification has room for " + std::to_string(most) + " bytes on this link, not " +
           std::to_string(length);
  }
  return std::nullopt;
}

void VirtualDevice::sendNotification(std::uint16_t handle, ByteView value) {
  const auto pdu = session_->server.notification(handle, value);
  if (!pdu) return;
  if (settings_.tellsNotifications) tell("NOTIFY", textOf(*database_.find(handle), value));
  session_->link.send(*pdu);
}

}  // namespace kestrin::vreader
