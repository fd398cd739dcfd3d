// What of CoreBluetooth may be one way or the other.
//
// Threads: plain values. Lifetime: of a plain value. Errors: none.
#pragma once

#include "KestrinBLESDK/platform/Clock.h"

namespace standin {

/// What becomes of the first attempts of each central manager at each device.
enum class FirstAttempts {
  areMade,         ///< They are made as all others are.
  fail,            ///< They are reported to have failed.
  endUnconnected,  ///< They are reported as disconnections, though there was no connection.
};

/// What Apple's documentation leaves open, and the original may do either way.
struct Habits {
  /// Requests that are under way when a link ends are answered, with an error.
  bool answersAtLinkEnd = true;
  /// A link that ends because Bluetooth was switched off is reported.
  bool reportsLinksAtPowerOff = true;
  /// The end of an attempt that was cancelled before it was a link is reported.
  bool reportsCancelledAttempts = true;
  FirstAttempts firstAttempts = FirstAttempts::areMade;
  /// How many attempts are the first ones.
  int manyFirst = 1;
  /// How long a link goes on after it was cancelled.
  kestrin::Time lingers = kestrin::Time::zero();
};

}  // namespace standin
