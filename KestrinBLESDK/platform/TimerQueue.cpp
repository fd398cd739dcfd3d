#include "KestrinBLESDK/platform/TimerQueue.h"

namespace kestrin {

std::size_t TimerQueue::RequestHash::operator()(const Request& request) const noexcept {
  // Targets differ in practice and selectors among few; a plain mix spreads them well enough.
  static constexpr std::size_t kMix = 31;
  return std::hash<const void*>{}(request.target) * kMix +
         std::hash<std::string_view>{}(request.selector);
}

TimerQueue::Id TimerQueue::arm(Time due, Task task, std::optional<Request> request) {
  const Id id = nextId_++;
  const Place place{due, id};
  if (request) places_.emplace(*request, place);
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
  for (auto found = places_.find(request); found != places_.end(); found = places_.find(request)) {
    tasks.push_back(take(entries_.find(found->second)));
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
  if (entry->second.request) forget(*entry->second.request, entry->first);
  dueById_.erase(entry->first.second);
  entries_.erase(entry);
  return task;
}

void TimerQueue::forget(const Request& request, const Place& place) {
  const auto [first, last] = places_.equal_range(request);
  for (auto entry = first; entry != last; ++entry) {
    if (entry->second != place) continue;
    places_.erase(entry);
    return;
  }
}

}  // namespace kestrin
