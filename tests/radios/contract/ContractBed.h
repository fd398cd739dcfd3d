// What the radio contract is stated against: one radio, one reader of the standard family and some
// other peripheral in its range, and orders that both obey. Each radio that keeps the contract has
// a bed of its own.
//
// Threads: on the thread that turns the main run loop. Lifetime: one bed per test; central managers
// may outlive it. Errors: an order that cannot be given fails the test.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "KestrinBLESDK/platform/CBPeripheral.h"
#include "KestrinBLESDK/platform/NSData.h"
#include "KestrinBLESDK/platform/Radio.h"

namespace kestrin::test {

class ContractBed {
 public:
  virtual ~ContractBed() = default;

  virtual std::shared_ptr<Radio> radio() = 0;
  /// Drops everything that the bed holds of the radio.
  virtual void dropRadio() = 0;
  /// Turns the main run loop until `done` returns true; false when that took longer than the
  /// slowest thing that the contract knows, a connection to a reader that has just come back.
  virtual bool runUntil(const std::function<bool()>& done) = 0;
  /// Turns the main run loop for as long as anything that was asked for, except for a connection,
  /// may take to be answered and reported.
  virtual void settle() = 0;
  /// Turns the main run loop once, without waiting for anything.
  virtual void turnOnce() = 0;

  // The reader. It plays the default script.
  /// The name that it advertises to begin with.
  [[nodiscard]] virtual std::string readerName() const = 0;
  virtual void rename(const std::string& name) = 0;
  virtual void vanish() = 0;
  virtual void appear() = 0;
  virtual void dropLink() = 0;
  /// Notifies the values in order on the characteristic for replies, as far as it is subscribed.
  virtual void notify(const std::vector<NSData>& values) = 0;
  /// Whether subscriptions are answered with an error.
  virtual void refuseSubscriptions(bool refuse) = 0;
  /// Why a characteristic whose subscription was refused once cannot be subscribed to later; empty
  /// where it can.
  [[nodiscard]] virtual std::string whyRefusedSubscriptionsStayRefused() const { return {}; }
  /// Whether a link is up, by the reader's own account.
  [[nodiscard]] virtual bool readerIsLinked() = 0;
  /// Every value written to the characteristic for commands so far, over all links.
  [[nodiscard]] virtual std::vector<NSData> writes() = 0;

  // The radio.
  virtual void switchOff() = 0;
  virtual void switchOn() = 0;
};

using ContractBedFactory = std::function<std::unique_ptr<ContractBed>()>;

}  // namespace kestrin::test
