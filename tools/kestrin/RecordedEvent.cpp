#include "tools/kestrin/RecordedEvent.h"

#include <algorithm>
#include <utility>

namespace kestrin::app {
std::span<const EventKindInfo> eventKinds() {
  using enum EventKind;
  using enum EventDirection;
  static constexpr EventKindInfo kKinds[] = {
      {call, "call", out, {"operation"}},
      {sent, "sent", in, {"accepted"}},
      {scanStatus, "scan-status", in, {"status"}},
      {reader, "reader", in, {"name", "identifier"}},
      {plug, "plug", in, {"plugged"}},
      {frame, "frame", in, {}},
      {scan, "scan", out, {}},
      {stopScan, "stop-scan", out, {}},
      {connect, "connect", out, {"identifier"}},
      {cancel, "cancel", out, {"identifier"}},
      {discoverServices, "discover-services", out, {"identifier"}},
      {discoverCharacteristics, "discover-characteristics", out, {"identifier", "service"}},
      {subscribe, "subscribe", out, {"identifier", "characteristic"}},
      {read, "read", out, {"identifier", "characteristic"}},
      {write, "write", out, {"identifier", "characteristic"}},
      {state, "state", in, {"state"}},
      {sighting, "sighting", in, {"identifier"}},
      {connected, "connected", in, {"identifier"}},
      {disconnected, "disconnected", in, {"identifier"}},
      {services, "services", in, {"identifier"}},
      {characteristics, "characteristics", in, {"identifier", "service"}},
      {subscription, "subscription", in, {"identifier", "characteristic"}},
      {notification, "notification", in, {"identifier", "characteristic"}},
      {readValue, "read-value", in, {"identifier", "characteristic"}},
      {delayArmed, "delay-armed", self, {"operation", "seconds"}},
      {delayFired, "delay-fired", self, {"operation"}},
      {delayCancelled, "delay-cancelled", self, {"operation"}},
      {pause, "pause", self, {"seconds"}},
      {log, "log", self, {"text"}},
  };
  return kKinds;
}

const EventKindInfo& infoOf(EventKind kind) { return eventKinds()[static_cast<std::size_t>(kind)]; }

const EventKindInfo* findEventKind(std::string_view text) {
  const auto kinds = eventKinds();
  const auto found = std::find_if(kinds.begin(), kinds.end(),
                                  [text](const EventKindInfo& info) { return info.text == text; });
  return found == kinds.end() ? nullptr : &*found;
}

std::string_view textOf(EventDirection direction) {
  switch (direction) {
    case EventDirection::out:
      return "out";
    case EventDirection::in:
      return "in";
    case EventDirection::self:
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

}  // namespace kestrin::app
