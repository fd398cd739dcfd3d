// An application as a fuzzer plays it: two managers with their delegates, and every call that a
// client can make, also from inside a callback or a log line, also one that ends the manager or the
// delegate that is just being called.
//
// Threads: the one that turns the platform's run loop.
// Lifetime: ends before the platform that it was made on.
// Errors: an invariant that does not hold ends the process.
#pragma once

#include <array>
#include <deque>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "KestrinBLESDK/KestrinBleMgr.h"
#include "fuzz/Fuzzing.h"

namespace kestrin::fuzz {

class Application {
 public:
  /// From which code of the library the application is called.
  enum class Callback { scanState, device, plug, frame, log };
  /// Whether a delivery may be bytes that are not whole frames.
  enum class Deliveries { wholeFrames, anything };
  /// Picks a peripheral; null for none.
  using Pick = std::function<std::shared_ptr<CBPeripheral>(ByteSource&)>;

  /// `platform` as it is, but with a log that this application listens to.
  Application(Platform platform, Pick pick);
  ~Application();
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;

  /// Makes one call, or drops or makes something.
  void act(ByteSource& input);
  /// Remembers a call for the next time that one of the callbacks comes.
  void arm(ByteSource& input);
  /// Checks what must hold between two events.
  void check() const;
  /// Lets go of every manager and delegate, and forgets what is armed.
  void dropEverything();
  /// Whether every manager that there ever was has ended.
  [[nodiscard]] bool allGone() const;

  static constexpr std::size_t kManagers = 2;
  [[nodiscard]] const std::shared_ptr<KestrinBleMgr>& manager(std::size_t index) const {
    return slots_[index].manager;
  }
  /// Managers that have not ended, with or without an owner.
  [[nodiscard]] std::vector<std::shared_ptr<KestrinBleMgr>> living() const;
  void expect(Deliveries deliveries) { deliveries_ = deliveries; }

  // For its own delegates.
  void react(Callback callback);
  void plugged(bool plugged) const;
  void delivered(const std::optional<NSData>& frame) const;

 private:
  class ScanListener;
  class Receiver;
  class Log;
  struct Slot {
    std::shared_ptr<KestrinBleMgr> manager;
    std::shared_ptr<ScanListener> listener;
    std::shared_ptr<Receiver> receiver;
  };

  void call(Slot& slot, ByteSource& input);
  void change(Slot& slot, ByteSource& input);
  void makeManager(Slot& slot);
  void setListener(Slot& slot);
  void setReceiver(Slot& slot);
  static void checkManager(KestrinBleMgr& manager);

  Platform platform_;
  const Pick pick_;
  std::array<Slot, kManagers> slots_;
  std::vector<std::weak_ptr<KestrinBleMgr>> made_;
  std::array<std::deque<Bytes>, 5> armed_;
  Deliveries deliveries_ = Deliveries::wholeFrames;
};

/// Some bytes, an absent value, or a frame that is right.
std::optional<NSData> takeValue(ByteSource& input);

}  // namespace kestrin::fuzz
