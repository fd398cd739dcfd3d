// What of CoreBluetooth may be one way or the other.
//
// Threads: plain values. Lifetime: of a plain value. Errors: none.
#pragma once

namespace standin {

/// What becomes of the first attempt of each central manager at each device.
enum class FirstAttempt {
  isMade,           ///< It is made as all others are.
  fails,            ///< It is reported to have failed.
  endsUnconnected,  ///< It is reported as a disconnection, though there was no connection.
};

/// What Apple's documentation leaves open, and the original may do either way.
struct Habits {
  /// Requests that are under way when a link ends are answered, with an error.
  bool answersAtLinkEnd = true;
  /// A link that ends because Bluetooth was switched off is reported.
  bool reportsLinksAtPowerOff = true;
  /// The end of an attempt that was cancelled before it was a link is reported.
  bool reportsCancelledAttempts = true;
  FirstAttempt firstAttempt = FirstAttempt::isMade;
};

}  // namespace standin
