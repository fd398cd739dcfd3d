// What open pages are sent: the newest status, and frames as they come.
//
// It has a fixed number of places. Whoever has not read what stood in a place before it was used
// again has lost its place, and is to be dropped.
//
// Threads: `push` on one thread, everything else on any. An entry's text is made by the thread that
// reads it, outside of the lock.
// Lifetime: belongs to a server.
// Errors: none.
#pragma once

#include "tools/gateway/message/Status.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace kestrin::gateway {

/// Frames that came, and how many more of the same time were left out.
struct FrameBatch {
  std::vector<Record> frames;
  std::uint64_t left = 0;
};

/// One event, of either kind.
struct FeedEvent {
  std::shared_ptr<const Status> status{};
  std::shared_ptr<const FrameBatch> frames{};
};

/// As the event stream writes it.
std::string textOf(const FeedEvent& event);

class Feed {
 public:
  /// Half a minute's, where one event comes each second and four with frames.
  static constexpr std::size_t kPlaces = 150;

  void push(FeedEvent event);
  /// The place behind everything that was pushed.
  [[nodiscard]] std::uint64_t end() const;
  enum class Look : std::uint8_t { nothing, found, lost };
  /// What stands at the place.
  Look at(std::uint64_t place, FeedEvent& event) const;
  [[nodiscard]] std::shared_ptr<const Status> newest() const;

 private:
  mutable std::mutex lock_;
  std::deque<FeedEvent> events_;
  std::uint64_t first_ = 0;  // The place of the oldest.
  std::shared_ptr<const Status> newest_;
};

}  // namespace kestrin::gateway
