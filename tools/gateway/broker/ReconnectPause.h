// How long to wait before the next attempt to connect: twice as long after each failure, and never
// the same for two gateways, so that a broker that comes back is not met by all of them at once.
//
// Threads: one.
// Lifetime: none of its own.
// Errors: none.
#pragma once

#include <KestrinBLESDK/platform/Clock.h>

#include <functional>

namespace kestrin::gateway {

/// From 0 to below 1, each as likely as the other.
using RandomSource = std::function<double()>;

struct PauseRules {
  Time first = std::chrono::milliseconds(500);
  Time longest = std::chrono::seconds(60);  ///< Before the random part.
  Time steady = std::chrono::seconds(5);    ///< A connection that held so long was a good one.
};

/// How a connection ended, or an attempt at one.
struct EndedConnection {
  Time up = Time::zero();  ///< How long it held.
  bool takenOver = false;  ///< By another client with the same id.
};

class ReconnectPause {
 public:
  ReconnectPause(PauseRules rules, RandomSource random);

  /// The pause after this end: the rule's, half of it more or less.
  Time after(const EndedConnection& ended);

 private:
  [[nodiscard]] bool wasGood(const EndedConnection& ended) const;

  const PauseRules rules_;
  const RandomSource random_;
  Time next_;
};

/// Random numbers of the system's.
RandomSource systemRandom();

}  // namespace kestrin::gateway
