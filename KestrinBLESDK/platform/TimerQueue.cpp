#include "KestrinBLESDK/platform/TimerQueue.h"

namespace kestrin {

bool TimerQueue::RequestedOrder::operator()(const Requested& a, const Requested& b) const noexcept {
  const std::less<const void*> before;  // Defined for any two objects, as `<` is not.
  if (a.request.target != b.request.target) return before(a.request.target, b.request.target);
  if (a.request.object != b.request.object) return before(a.request.object, b.request.object);
  const int selectors = a.request.selector.compare(b.request.selector);
  return selectors != 0 ? selectors < 0 : a.place < b.place;
}

TimerQueue::Id TimerQueue::arm(Time due, Task task, std::optional<Request> request) {
  const Id id = nextId_++;
  const Place place{due, id};
  if (request) requested_.insert({*request, place});
  dueById_.emplace(id, due);
  entries_.emplace(place, Entry{std::move(task), request});
  return id;
}

TimerQueue::Task TimerQueue::cancel(Id id) {
  const auto known = dueById_.find(id);
  if (known == dueById_.end()) return {};
  return take(entries_.find(Place{known->second, id}));
}

std::vector<TimerQueue::Task> TimerQueue::cancelAll(const Request& request) {
  std::vector<Task> tasks;
  const Requested before{request, {Time::min(), 0}};
  for (auto found = requested_.lower_bound(before);
       found != requested_.end() && found->request == request;
       found = requested_.lower_bound(before)) {
    tasks.push_back(take(entries_.find(found->place)));
  }
  return tasks;
}

std::optional<Time> TimerQueue::nextDue() const {
  if (entries_.empty()) return std::nullopt;
  return entries_.begin()->first.first;
}

TimerQueue::Task TimerQueue::takeDue(Time now, Id barrier) {
  // Timers armed in the running turn lie behind the barrier. They can only stand in front of older
  // ones that are not due yet, or among due ones when the clock was slept forward, so the walk past
  // them is short.
  for (auto entry = entries_.begin(); entry != entries_.end() && entry->first.first <= now;
       ++entry) {
    if (entry->first.second < barrier) return take(entry);
  }
  return {};
}

TimerQueue::Task TimerQueue::take(Entries::iterator entry) {
  Task task = std::move(entry->second.task);
  if (entry->second.request) requested_.erase({*entry->second.request, entry->first});
  dueById_.erase(entry->first.second);
  entries_.erase(entry);
  return task;
}

}  // namespace kestrin
