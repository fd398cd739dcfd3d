// The descriptors that a run loop watches, and one look at them. Knows no clock and no thread;
// `MainRunLoop` asks it under a lock, and looks without.
//
// Threads: one at a time; a `Look` is the asker's own.
// Lifetime: owns the handlers; one that leaves is handed to the caller, so that it is released
// without the caller's lock. The descriptors are the application's.
// Errors: none.
#pragma once

#include <poll.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "KestrinBLESDK/platform/Clock.h"
#include "KestrinBLESDK/platform/Readiness.h"

namespace kestrin {

/// How long to wait before the system is asked again that refused a look.
inline constexpr Time kPauseAfterRefusal = std::chrono::milliseconds(10);

/// What the system is asked, and what it finds.
class Look {
 public:
  using Id = std::uint64_t;
  struct Found {
    Id id;
    Readiness readiness;
  };

  void add(Id id, int descriptor, short events);
  /// Besides: a descriptor that only ends the wait.
  void addWaker(int descriptor);
  /// Looks, and waits for at most `limit` until something is ready; without end when it is absent.
  /// Returns false when the system refuses, as it does where fewer
  /// descriptors are allowed than are watched.
  bool take(std::optional<Time> limit);
  [[nodiscard]] bool empty() const noexcept { return ids_.empty(); }
  /// Whether the last look found a watched descriptor ready.
  [[nodiscard]] bool isReady() const noexcept;
  /// What it found, in the order of adding.
  [[nodiscard]] std::vector<Found> found() const;

 private:
  std::vector<Id> ids_;
  std::vector<pollfd> polled_;  // The wakers stand behind those that have an id.
};

class DescriptorWatches {
 public:
  using Id = Look::Id;
  using Handler = std::function<void(Readiness)>;
  /// Kept while it runs: a handler may end its own watch.
  using SharedHandler = std::shared_ptr<const Handler>;

  Id add(int descriptor, Readiness events, Handler handler);
  /// Ends a watch and hands its handler over; null when there is none.
  SharedHandler remove(Id id);
  /// The handler of a watch; null when it has ended.
  [[nodiscard]] SharedHandler handler(Id id) const;
  [[nodiscard]] bool empty() const noexcept { return watches_.empty(); }
  /// The id that the next watch gets.
  [[nodiscard]] Id nextId() const noexcept { return nextId_; }
  /// All that are watched, and those of them that were watched before `barrier`.
  [[nodiscard]] Look look() const { return look(nextId_); }
  [[nodiscard]] Look look(Id barrier) const;

 private:
  struct Watch {
    int descriptor;
    short events;
    SharedHandler handler;
  };
  Id nextId_ = 1;
  std::map<Id, Watch> watches_;
};

}  // namespace kestrin
