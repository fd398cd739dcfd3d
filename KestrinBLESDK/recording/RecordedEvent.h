/// \file
/// What a recording is made of: one thing that has passed between application, manager, radio and
/// reader, or that the manager has done by itself. docs/recording.md has the whole form.
///
/// Threads: plain values and pure functions.
///
/// Errors: none.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "KestrinBLESDK/platform/CBCentralManager.h"
#include "KestrinBLESDK/platform/Clock.h"
#include "KestrinBLESDK/platform/Export.h"

namespace kestrin {
/// \addtogroup recording
/// @{

/// What has happened.
enum class RecordedKind : std::uint8_t {
  call,                     ///< The application calls an operation of the manager.
  sent,                     ///< What `send` returned.
  scanStatus,               ///< `scanBleStatus` is called.
  reader,                   ///< `scanningBleDeive` is called.
  plug,                     ///< `plugChangedStatus` is called.
  frame,                    ///< `dispatchRcpFrmReader` is called.
  scan,                     ///< The radio is asked to scan.
  stopScan,                 ///< The radio is asked to end the scan.
  connect,                  ///< The radio is asked for a link.
  cancel,                   ///< The radio is asked to end a link or an attempt.
  discoverServices,         ///< A reader is asked for its services.
  discoverCharacteristics,  ///< A reader is asked for a service's characteristics.
  subscribe,                ///< Notifications are asked for, or no longer wanted.
  read,                     ///< A value is asked for.
  write,                    ///< A slice is written.
  state,                    ///< The radio reports its state.
  sighting,                 ///< The radio reports a device.
  connected,                ///< A link is up.
  disconnected,             ///< A link has ended.
  services,                 ///< The services have come.
  characteristics,          ///< A service's characteristics have come.
  subscription,             ///< Notifications are on, or off.
  notification,             ///< A value that the reader notified.
  readValue,                ///< A value that was asked for.
  delayArmed,               ///< A delayed request begins to run.
  delayFired,               ///< A delayed request is carried out.
  delayCancelled,           ///< A delayed request is dropped.
  pause,                    ///< The write path sleeps from now on.
  log,                      ///< A line of the library's log.
};

/// Which way it went.
enum class RecordedDirection : std::uint8_t {
  out,   ///< Towards the reader.
  in,    ///< Towards the application.
  self,  ///< The manager does it by itself.
};

/// What is known of a kind.
struct RecordedKindInfo {
  /// Its name in a recording.
  std::string_view text;
  /// The fields that every event of this kind has; the rest of the array is empty.
  std::array<std::string_view, 2> needed;
  /// The kind.
  RecordedKind kind;
  /// Which way events of this kind go.
  RecordedDirection direction;
};

/// Every kind, in the order of the enumeration.
KESTRIN_EXPORT std::span<const RecordedKindInfo> recordedKinds();
/// What is known of this kind.
KESTRIN_EXPORT const RecordedKindInfo& recordedKindInfo(RecordedKind kind);
/// The kind of that name; null when there is none.
KESTRIN_EXPORT const RecordedKindInfo* findRecordedKind(std::string_view text);
/// The direction's name in a recording.
KESTRIN_EXPORT std::string_view recordedDirection(RecordedDirection direction);

/// One event. The fields have the names that a recording gives them; which are set depends on the
/// kind.
struct RecordedEvent {
  /// What has happened.
  RecordedKind kind = RecordedKind::log;
  /// Since the recording began.
  Time time{};

  std::optional<std::string> operation;       ///< The operation's name, or the delayed request's.
  std::optional<std::string> name;            ///< The device's name, bytes as they came.
  std::optional<std::string> identifier;      ///< What the radio tells the device by.
  std::optional<std::string> state;           ///< The radio's state, see `recordedState`.
  std::optional<std::string> service;         ///< A service.
  std::optional<std::string> characteristic;  ///< A characteristic.
  std::optional<std::vector<std::string>> services;         ///< Services; absent for all.
  std::optional<std::vector<std::string>> characteristics;  ///< Characteristics; absent for all.
  std::optional<std::vector<std::string>> properties;       ///< Of each, see `recordedProperties`.
  std::optional<std::vector<std::uint8_t>> bytes;           ///< The bytes.
  std::optional<std::int64_t> status;                       ///< The status of a scan.
  std::optional<std::int64_t> rssi;                         ///< Signal strength in dBm.
  std::optional<Time> seconds;                              ///< How long a delay or a pause is.
  std::optional<bool> plugged;                              ///< Whether the reader is plugged in.
  std::optional<bool> enabled;                              ///< Whether notifications are wanted.
  std::optional<bool> accepted;                             ///< What `send` returned.
  std::optional<std::string> error;                         ///< What went wrong; absent if nothing.
  std::optional<std::string> text;                          ///< The line of the log.

  /// Whether all fields are equal.
  friend bool operator==(const RecordedEvent&, const RecordedEvent&) = default;
};

/// `powered-on`; a state without a name by its number.
KESTRIN_EXPORT std::string recordedState(CBManagerState state);
/// The property bits by name, `read+notify`; `none` for none.
KESTRIN_EXPORT std::string recordedProperties(CBCharacteristicProperties properties);

/// What a recording begins with.
struct RecordingHeader {
  /// What writes it, with its version.
  std::string program{};
  /// What the program was asked to do.
  std::string command{};
  /// `bluez` or `simulated`.
  std::string radio{};
  /// When the recording began, in UTC, as in 2026-01-31T12:00:00Z; absent in virtual time.
  std::optional<std::string> started{};

  /// Whether all fields are equal.
  friend bool operator==(const RecordingHeader&, const RecordingHeader&) = default;
};

/// The wall-clock time in UTC, as in 2026-01-31T12:00:00Z.
KESTRIN_EXPORT std::string utcNow();

/// @}

}  // namespace kestrin
