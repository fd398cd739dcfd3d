#include "KestrinBLESDK/recording/RecordedEvent.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <utility>

namespace kestrin {
std::span<const RecordedKindInfo> recordedKinds() {
  using enum RecordedKind;
  using enum RecordedDirection;
  static constexpr RecordedKindInfo kKinds[] = {
      {"call", {"operation"}, call, out},
      {"sent", {"accepted"}, sent, in},
      {"scan-status", {"status"}, scanStatus, in},
      {"reader", {"name", "identifier"}, reader, in},
      {"plug", {"plugged"}, plug, in},
      {"frame", {}, frame, in},
      {"scan", {}, scan, out},
      {"stop-scan", {}, stopScan, out},
      {"connect", {"identifier"}, connect, out},
      {"cancel", {"identifier"}, cancel, out},
      {"discover-services", {"identifier"}, discoverServices, out},
      {"discover-characteristics", {"identifier", "service"}, discoverCharacteristics, out},
      {"subscribe", {"identifier", "characteristic"}, subscribe, out},
      {"read", {"identifier", "characteristic"}, read, out},
      {"write", {"identifier", "characteristic"}, write, out},
      {"state", {"state"}, state, in},
      {"sighting", {"identifier"}, sighting, in},
      {"connected", {"identifier"}, connected, in},
      {"disconnected", {"identifier"}, disconnected, in},
      {"services", {"identifier"}, services, in},
      {"characteristics", {"identifier", "service"}, characteristics, in},
      {"subscription", {"identifier", "characteristic"}, subscription, in},
      {"notification", {"identifier", "characteristic"}, notification, in},
      {"read-value", {"identifier", "characteristic"}, readValue, in},
      {"delay-armed", {"operation", "seconds"}, delayArmed, self},
      {"delay-fired", {"operation"}, delayFired, self},
      {"delay-cancelled", {"operation"}, delayCancelled, self},
      {"pause", {"seconds"}, pause, self},
      {"log", {"text"}, log, self},
  };
  return kKinds;
}

const RecordedKindInfo& recordedKindInfo(RecordedKind kind) {
  return recordedKinds()[static_cast<std::size_t>(kind)];
}

const RecordedKindInfo* findRecordedKind(std::string_view text) {
  const auto kinds = recordedKinds();
  const auto found = std::find_if(kinds.begin(), kinds.end(), [text](const RecordedKindInfo& info) {
    return info.text == text;
  });
  return found == kinds.end() ? nullptr : &*found;
}

std::string_view recordedDirection(RecordedDirection direction) {
  switch (direction) {
    case RecordedDirection::out:
      return "out";
    case RecordedDirection::in:
      return "in";
    case RecordedDirection::self:
      break;
  }
  return "self";
}

std::string recordedState(CBManagerState state) {
  switch (state) {
    case CBManagerState::unknown:
      return "unknown";
    case CBManagerState::resetting:
      return "resetting";
    case CBManagerState::unsupported:
      return "unsupported";
    case CBManagerState::unauthorized:
      return "unauthorized";
    case CBManagerState::poweredOff:
      return "powered-off";
    case CBManagerState::poweredOn:
      return "powered-on";
  }
  return std::to_string(static_cast<std::int64_t>(state));
}

std::string recordedProperties(CBCharacteristicProperties properties) {
  static constexpr std::pair<CBCharacteristicProperties, std::string_view> kNames[] = {
      {CBCharacteristicPropertyRead, "read"},
      {CBCharacteristicPropertyWriteWithoutResponse, "write-without-response"},
      {CBCharacteristicPropertyWrite, "write"},
      {CBCharacteristicPropertyNotify, "notify"},
      {CBCharacteristicPropertyIndicate, "indicate"},
  };
  std::string text;
  for (const auto& [bit, name] : kNames) {
    if ((properties & bit) == 0) continue;
    if (!text.empty()) text += '+';
    text += name;
  }
  return text.empty() ? "none" : text;
}

std::string utcNow() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  ::gmtime_r(&now, &parts);
  std::array<char, sizeof "2026-01-31T12:00:00Z"> text{};
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

}  // namespace kestrin
