// What a recording and `--json` are made of: one thing that has passed between application,
// manager, radio and reader, or that the manager has done by itself. docs/recording.md tells the
// whole form.
//
// Threads: plain values and pure functions.
// Errors: none here; see RecordedEventJson.h for texts that are none.
#pragma once

#include <KestrinBLESDK/platform/CBCentralManager.h>
#include <KestrinBLESDK/platform/Clock.h>

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kestrin::app {

enum class EventKind : std::uint8_t {
  // Between application and manager.
  call,
  sent,
  scanStatus,
  reader,
  plug,
  frame,
  // What the manager asks of the radio and of the reader.
  scan,
  stopScan,
  connect,
  cancel,
  discoverServices,
  discoverCharacteristics,
  subscribe,
  read,
  write,
  // What comes back.
  state,
  sighting,
  connected,
  disconnected,
  services,
  characteristics,
  subscription,
  notification,
  readValue,
  // The manager, with itself.
  delayArmed,
  delayFired,
  delayCancelled,
  pause,
  log,
};

/// Towards the reader, towards the application, or neither.
enum class EventDirection : std::uint8_t { out, in, self };

struct EventKindInfo {
  std::string_view text;
  /// The fields that every event of this kind has; the rest of the array is empty.
  std::array<std::string_view, 2> needed;
  EventKind kind;
  EventDirection direction;
};

/// Every kind, in the order of the enumeration.
std::span<const EventKindInfo> eventKinds();
const EventKindInfo& infoOf(EventKind kind);
/// The kind of that name; null when there is none.
const EventKindInfo* findEventKind(std::string_view text);
std::string_view textOf(EventDirection direction);

/// The fields have the names that the recording gives them. Which are set depends on the kind.
struct RecordedEvent {
  EventKind kind = EventKind::log;
  /// Since the beginning of the recording.
  Time time{};

  std::optional<std::string> operation;
  std::optional<std::string> name;
  std::optional<std::string> identifier;
  std::optional<std::string> state;
  std::optional<std::string> service;
  std::optional<std::string> characteristic;
  std::optional<std::vector<std::string>> services;
  std::optional<std::vector<std::string>> characteristics;
  std::optional<std::vector<std::string>> properties;
  std::optional<std::vector<std::uint8_t>> bytes;
  std::optional<std::int64_t> status;
  std::optional<std::int64_t> rssi;
  std::optional<Time> seconds;
  std::optional<bool> plugged;
  std::optional<bool> enabled;
  std::optional<bool> accepted;
  std::optional<std::string> error;
  std::optional<std::string> text;

  friend bool operator==(const RecordedEvent&, const RecordedEvent&) = default;
};

/// `powered-on`; a state without a name by its number.
std::string recordedState(CBManagerState state);
/// The property bits by name, `read+notify`; `none` for none.
std::string recordedProperties(CBCharacteristicProperties properties);

/// What a recording begins with.
struct RecordingHeader {
  std::string program;
  std::string command;
  /// `bluez` or `simulated`.
  std::string radio;
  /// When the recording began, in UTC, as in 2026-01-31T12:00:00Z; absent in virtual time.
  std::optional<std::string> started;

  friend bool operator==(const RecordingHeader&, const RecordingHeader&) = default;
};

}  // namespace kestrin::app
