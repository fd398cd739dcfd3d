// One step of a generated history: a call of the client, an event of the platform, a change of the
// world, or time that passes. Both the real managers and their model take the same steps.
//
// Threads: plain values. Lifetime: none. Errors: none; an operand that is too large wraps around.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <vector>

namespace kestrin::test {

enum class Op : std::uint8_t {
  // Of the client; also from inside a callback or a log line.
  scanBLE,
  stopSacnBLE,
  connectBLE,  // a: peripheral, or one past the last for none
  close,
  send,                    // a: frame
  sendPower,               // a: frame
  writeRawData,            // a: frame
  readData,                // a: value
  setDelegate,             // a: delegate, or one past the last for none
  setRcpReceiverDelegate,  // a: likewise
  dropDelegate,            // a: delegate
  dropReceiver,            // a: receiver
  dropManager,
  enterBackground,
  ask,
  // Of the client, by itself only.
  newDelegate,  // a: delegate, b: mask of what it implements
  newReceiver,  // a: receiver, b: likewise
  newManager,
  react,  // a: site, b: which of the above to do there, c: its operand
  // Of the world.
  rename,               // a: peripheral, b: name
  showServices,         // a: peripheral, b: mask of services, c: order
  showCharacteristics,  // a: service, b: mask of characteristics, c: order
  setProperties,        // a: characteristic, b: property mask
  // Events.
  didUpdateState,              // a: state, b: 1 for the other manager's central manager
  didDiscoverPeripheral,       // a: peripheral
  didConnect,                  // a: peripheral
  didDisconnect,               // a: peripheral, b: 1 for an error
  didDiscoverServices,         // a: peripheral, b: 1 for an error
  didDiscoverCharacteristics,  // a: peripheral, b: service, c: 1 for an error
  didUpdateValue,              // a: peripheral, b: characteristic, c: value; past the last: error
  didUpdateNotificationState,  // a: peripheral, b: characteristic, c: likewise
  peripheralManagerDidUpdateState,
  isConnectedBLE,
  // Time.
  run,  // a: how long
  count,
};

inline constexpr auto kClientOps = static_cast<unsigned>(Op::newDelegate);
inline constexpr unsigned kManagers = 2;
inline constexpr unsigned kDelegates = 2;
inline constexpr unsigned kReceivers = 2;

struct Step {
  Op op = Op::run;
  unsigned manager = 0;
  unsigned a = 0;
  unsigned b = 0;
  unsigned c = 0;
};
using Steps = std::vector<Step>;

/// Where a client can act from inside the library: each callback of each delegate, and a log line.
enum class Site : std::uint8_t { status, device, plug, frame };
inline constexpr unsigned kSites = 2 * kDelegates + 2 * kReceivers + 1;
inline constexpr unsigned kLogSite = kSites - 1;
/// The number of a callback's site.
inline constexpr unsigned siteNumber(Site site, unsigned delegate) {
  return 4 * delegate + static_cast<unsigned>(site);
}

/// What the client does at a site, once.
inline Step reactionOf(const Step& react) {
  return {static_cast<Op>(react.b % kClientOps), react.manager, react.c, 0, 0};
}

void showValue(const Step& step, std::ostream& out);
void showValue(const Steps& steps, std::ostream& out);

}  // namespace kestrin::test
