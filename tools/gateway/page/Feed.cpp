#include "tools/gateway/page/Feed.h"

#include <utility>

namespace kestrin::gateway {

std::string textOf(const FeedEvent& event) {
  std::string text;
  // JSON has no line end outside of what it escapes, so each is one line of data.
  if (event.status) text += "event: status\ndata: " + textOf(*event.status) + "\n\n";
  if (event.frames) {
    text += "event: frames\ndata: " + framesText(event.frames->frames, event.frames->left) + "\n\n";
  }
  return text;
}

void Feed::push(FeedEvent event) {
  // What falls out is dropped outside of the lock.
  FeedEvent gone;
  std::shared_ptr<const Status> old = event.status;
  const std::lock_guard<std::mutex> hold(lock_);
  if (event.status) newest_.swap(old);
  events_.push_back(std::move(event));
  if (events_.size() <= kPlaces) return;
  gone = std::move(events_.front());
  events_.pop_front();
  ++first_;
}

std::uint64_t Feed::end() const {
  const std::lock_guard<std::mutex> hold(lock_);
  return first_ + events_.size();
}

Feed::Look Feed::at(std::uint64_t place, FeedEvent& event) const {
  const std::lock_guard<std::mutex> hold(lock_);
  if (place < first_) return Look::lost;
  if (place >= first_ + events_.size()) return Look::nothing;
  event = events_[static_cast<std::size_t>(place - first_)];
  return Look::found;
}

std::shared_ptr<const Status> Feed::newest() const {
  const std::lock_guard<std::mutex> hold(lock_);
  return newest_;
}

}  // namespace kestrin::gateway
