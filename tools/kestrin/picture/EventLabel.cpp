#include "tools/kestrin/picture/EventLabel.h"

#include <algorithm>
#include <span>
#include <string_view>

#include "tools/kestrin/text/Frames.h"
#include "tools/kestrin/text/Hex.h"
#include "tools/kestrin/text/SafeText.h"
#include "tools/kestrin/text/Seconds.h"

namespace kestrin::app {
namespace {

constexpr std::size_t kNameLength = 24;
constexpr std::size_t kErrorLength = 56;
constexpr std::size_t kListedUuids = 4;
constexpr std::size_t kShownBytes = 4;

std::string shortUuid(const std::string& uuid) {
  constexpr std::size_t kBegin = 8;  // Tells the 128-bit ones of a reader apart.
  return uuid.size() > kBegin ? shortened(uuid, kBegin) : uuid;
}

std::string nameLabel(const RecordedEvent& event) {
  if (event.name) return "'" + shortened(*event.name, kNameLength) + "'";
  return shortened(event.identifier.value_or("somebody"), kNameLength);
}

std::string listLabel(const std::optional<std::vector<std::string>>& uuids) {
  if (!uuids) return "all";
  if (uuids->empty()) return "none";
  std::string text;
  for (std::size_t i = 0; i < std::min(uuids->size(), kListedUuids); ++i) {
    text += (i == 0 ? "" : " ") + shortUuid((*uuids)[i]);
  }
  return uuids->size() > kListedUuids ? text + " ..." : text;
}

std::string withError(std::string text, const RecordedEvent& event) {
  if (!event.error) return text;
  std::string_view error = *event.error;
  constexpr std::string_view kBegin = "Error Domain=";
  if (error.starts_with(kBegin)) error.remove_prefix(kBegin.size());
  return text + ": " + shortened(error, kErrorLength);
}

std::string characteristicLabel(const RecordedEvent& event) {
  return shortUuid(event.characteristic.value_or(""));
}

std::string operationLabel(const RecordedEvent& event) {
  return shortened(event.operation.value_or(""), kNameLength);
}

std::string secondsLabel(const RecordedEvent& event) {
  return secondsText(event.seconds.value_or(Time::zero())) + " s";
}

std::string callLabel(const RecordedEvent& event) {
  std::string text = operationLabel(event);
  if (event.name || event.identifier) text += " " + nameLabel(event);
  if (event.bytes) text += " " + bytesLabel(event.bytes);
  return text;
}

std::string frameLabel(const RecordedEvent& event) {
  if (!event.bytes) return "a value without bytes";
  // A KVR-Q62T reader's values come as they are.
  if (!whyNoFrame(*event.bytes).empty()) return "raw " + bytesLabel(event.bytes);
  return "frame " + describeFrame(*event.bytes);
}

/// What the application and the manager tell each other.
std::string applicationLabel(const RecordedEvent& event) {
  switch (event.kind) {
    case RecordedKind::call:
      return callLabel(event);
    case RecordedKind::sent:
      return event.accepted.value_or(false) ? "send returns true" : "send returns false";
    case RecordedKind::scanStatus:
      return "scanBleStatus " + std::to_string(event.status.value_or(0));
    case RecordedKind::reader:
      return "scanningBleDeive " + nameLabel(event);
    case RecordedKind::plug:
      return event.plugged.value_or(false) ? "plugged in" : "unplugged";
    default:
      return frameLabel(event);
  }
}

std::string requestLabel(const RecordedEvent& event) {
  switch (event.kind) {
    case RecordedKind::scan:
      return "scan";
    case RecordedKind::stopScan:
      return "stop scan";
    case RecordedKind::connect:
      return "connect " + nameLabel(event);
    case RecordedKind::cancel:
      return "cancel " + nameLabel(event);
    case RecordedKind::discoverServices:
      return "discover services: " + listLabel(event.services);
    case RecordedKind::discoverCharacteristics:
      return "discover characteristics of " + shortUuid(event.service.value_or(""));
    case RecordedKind::subscribe:
      return (event.enabled.value_or(true) ? "subscribe " : "unsubscribe ") +
             characteristicLabel(event);
    case RecordedKind::read:
      return "read " + characteristicLabel(event);
    default:
      return "write " + bytesLabel(event.bytes);
  }
}

std::string answerLabel(const RecordedEvent& event) {
  switch (event.kind) {
    case RecordedKind::state:
      return "radio " + shortened(event.state.value_or(""), kNameLength);
    case RecordedKind::sighting:
      return "seen " + nameLabel(event);
    case RecordedKind::connected:
      return "connected";
    case RecordedKind::disconnected:
      return withError("disconnected", event);
    case RecordedKind::services:
      return withError("services " + listLabel(event.services), event);
    case RecordedKind::characteristics:
      return withError("characteristics " + listLabel(event.characteristics), event);
    case RecordedKind::subscription:
      return withError("subscribed " + characteristicLabel(event), event);
    case RecordedKind::readValue:
      return withError("value of " + characteristicLabel(event), event);
    default:
      return withError("notify " + bytesLabel(event.bytes), event);
  }
}

}  // namespace

std::string bytesLabel(const std::optional<std::vector<std::uint8_t>>& bytes) {
  if (!bytes) return "nothing";
  std::string text = countOf(bytes->size(), "byte");
  if (bytes->empty()) return text;
  text += " " + upperHex(std::span(*bytes).first(std::min(bytes->size(), kShownBytes)));
  return bytes->size() > kShownBytes ? text + "..." : text;
}

std::string eventLabel(const RecordedEvent& event) {
  switch (event.kind) {
    case RecordedKind::delayArmed:
      return "in " + secondsLabel(event) + ": " + operationLabel(event);
    case RecordedKind::delayFired:
      return "now: " + operationLabel(event);
    case RecordedKind::delayCancelled:
      return "no longer: " + operationLabel(event);
    case RecordedKind::pause:
      return "pause " + secondsLabel(event);
    case RecordedKind::log:
      return "log: " + shortened(event.text.value_or(""), kErrorLength);
    default:
      break;
  }
  if (event.kind <= RecordedKind::frame) return applicationLabel(event);
  return event.kind <= RecordedKind::write ? requestLabel(event) : answerLabel(event);
}

std::string_view eventStyle(const RecordedEvent& event) {
  if (event.error) return "wrong";
  switch (event.kind) {
    case RecordedKind::frame:
      return "frame";
    case RecordedKind::write:
      return "write";
    case RecordedKind::notification:
    case RecordedKind::readValue:
      return "value";
    case RecordedKind::scan:
    case RecordedKind::stopScan:
    case RecordedKind::sighting:
    case RecordedKind::state:
      return "scan";
    default:
      return event.kind < RecordedKind::frame ? "application" : "link";
  }
}

}  // namespace kestrin::app
