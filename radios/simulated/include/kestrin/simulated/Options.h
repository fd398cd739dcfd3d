/// \struct kestrin::simulated::Options
/// How a simulated radio and its air behave.
///
/// Threads: a plain value.
///
/// Errors: a range whose maximum lies below its minimum counts as its
/// minimum alone.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "KestrinBLESDK/platform/CBCentralManager.h"
#include "KestrinBLESDK/platform/Clock.h"
#include "KestrinBLESDK/platform/NSLog.h"

namespace kestrin::simulated {
/// \addtogroup simulated
/// @{

/// Every value from `min` to `max` is as likely as every other.
template <class T>
struct Range {
  T min;  ///< The least value.
  T max;  ///< The largest value, itself included.
};

struct Options {
  /// Everything left to chance is drawn from this: with virtual time, the same seed and the same
  /// calls give the same events at the same times.
  std::uint64_t seed = 1;
  /// Whether a `SimulatedPlatform` runs in virtual time.
  bool virtualTime = false;
  /// Where a `SimulatedPlatform` logs; null for the process-wide default sink.
  std::shared_ptr<NSLogSink> log{};
  /// The radio's state to begin with.
  CBManagerState state = CBManagerState::poweredOn;
  /// Bytes of each notification that a reply is cut into, 1 to 20: an ATT_MTU of 23 leaves 20
  /// (Bluetooth Core, Vol 3, Part F, 3.4.7.1).
  Range<std::size_t> pieceSize{20, 20};
  /// How long a message takes in either direction. Messages never overtake each other.
  Range<Time> latency{std::chrono::milliseconds(5), std::chrono::milliseconds(15)};
  /// A peripheral that may be heard is heard within this time.
  Time advertisingInterval = std::chrono::milliseconds(100);
  /// The signal strength of a sighting, in dBm.
  Range<int> signalStrength{-70, -50};
  /// How long one connection attempt takes, whether it succeeds or fails.
  Range<Time> connectionDelay{std::chrono::milliseconds(50), std::chrono::milliseconds(150)};
  /// The pause after a first failed attempt; every further one is twice as long.
  Time firstRetryPause = std::chrono::milliseconds(500);
  /// No pause between attempts is longer.
  Time longestRetryPause = std::chrono::seconds(30);
  /// How long after a linked peripheral has vanished its link is found to be lost.
  Time supervisionTimeout = std::chrono::milliseconds(500);
};

/// @}

}  // namespace kestrin::simulated
