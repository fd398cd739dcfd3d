/// \class kestrin::TimerQueue
/// The one queue of timers: what is due when, in order of due time, ties in order of arming. It
/// knows no clock and no thread; `MainRunLoop` asks it under a lock.
///
/// Threads: one at a time.
///
/// Lifetime: owns the tasks; a task that leaves the queue is handed to the caller, so that it is
/// run and released without the caller's lock.
///
/// Errors: none.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "KestrinBLESDK/platform/Clock.h"
#include "KestrinBLESDK/platform/Export.h"

namespace kestrin {
/// \addtogroup platform
/// @{

class KESTRIN_EXPORT TimerQueue {
 public:
  /// What runs when a timer is due.
  using Task = std::function<void()>;
  /// Names one timer; counts up from 1 in order of arming.
  using Id = std::uint64_t;

  /// What a delayed request is cancelled by.
  struct Request {
    const void* target = nullptr;  ///< The object that it runs on.
    std::string_view selector;     ///< The operation's name.
    const void* object = nullptr;  ///< The argument; null when absent.
    /// Whether target, operation and argument are the same.
    friend bool operator==(const Request&, const Request&) = default;
  };

  /// Adds a task; ids count up in order of arming.
  Id arm(Time due, Task task, std::optional<Request> request = std::nullopt);
  /// Removes a timer and hands its task over; empty when it is not pending.
  Task cancel(Id id);
  /// Removes every timer armed for `request` and hands the tasks over.
  std::vector<Task> cancelAll(const Request& request);
  /// When the first timer is due; absent when none is pending.
  [[nodiscard]] std::optional<Time> nextDue() const;
  /// Removes the first timer that is due at `now` and was armed before `barrier`; empty when there
  /// is none.
  Task takeDue(Time now, Id barrier);
  /// The id that the next armed timer gets.
  [[nodiscard]] Id nextId() const noexcept { return nextId_; }
  /// How many timers are pending.
  [[nodiscard]] std::size_t size() const noexcept { return entries_.size(); }

 private:
  struct Entry {
    Task task;
    std::optional<Request> request;
  };
  using Place = std::pair<Time, Id>;
  using Entries = std::map<Place, Entry>;
  /// A timer that a request was given for.
  struct Requested {
    Request request;
    Place place;
  };
  /// Timers of one request stand together, in order of due time: however many are alike, one of
  /// them is found without a look at the others.
  struct RequestedOrder {
    bool operator()(const Requested& a, const Requested& b) const noexcept;
  };

  Task take(Entries::iterator entry);

  Id nextId_ = 1;
  Entries entries_;
  std::unordered_map<Id, Time> dueById_;
  std::set<Requested, RequestedOrder> requested_;
};

/// @}

}  // namespace kestrin
