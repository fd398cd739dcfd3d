#include "KestrinBLESDK/platform/DescriptorWatches.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <utility>

namespace kestrin {
namespace {

struct Meaning {
  Readiness readiness;
  short event;
};
constexpr std::array<Meaning, 5> kMeanings{{{Readiness::readable, POLLIN},
                                            {Readiness::writable, POLLOUT},
                                            {Readiness::hungUp, POLLHUP},
                                            {Readiness::failed, POLLERR},
                                            {Readiness::closed, POLLNVAL}}};

/// Those that can be asked for; the system reports the others by itself.
short eventsOf(Readiness wanted) {
  short events = 0;
  if (hasAny(wanted, Readiness::readable)) events |= POLLIN;
  if (hasAny(wanted, Readiness::writable)) events |= POLLOUT;
  return events;
}

Readiness readinessOf(short events) {
  auto found = Readiness{};
  for (const Meaning& meaning : kMeanings) {
    if ((events & meaning.event) != 0) found = found | meaning.readiness;
  }
  return found;
}

// A longer wait is made in parts, by whoever finds that nothing was ready.
constexpr Time kLongest = std::chrono::hours(24);

#if defined(__APPLE__) || defined(KESTRIN_WITHOUT_PPOLL)
/// What these systems have counts in milliseconds: a timer comes late by up to one, never early.
int waitForAny(std::vector<pollfd>& polled, std::optional<Time> limit) {
  int wait = -1;
  if (limit) {
    const Time clipped = std::clamp(*limit, Time::zero(), kLongest);
    wait = static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(clipped).count());
  }
  return ::poll(polled.data(), static_cast<nfds_t>(polled.size()), wait);
}
#else
/// Not `poll`, which counts in milliseconds: a timer would come late by up to one.
int waitForAny(std::vector<pollfd>& polled, std::optional<Time> limit) {
  const Time clipped = std::clamp(limit.value_or(Time::zero()), Time::zero(), kLongest);
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(clipped);
  const timespec wait{.tv_sec = static_cast<time_t>(seconds.count()),
                      .tv_nsec = static_cast<long>((clipped - seconds).count())};
  return ::ppoll(polled.data(), static_cast<nfds_t>(polled.size()), limit ? &wait : nullptr,
                 nullptr);
}
#endif

}  // namespace

void Look::add(Id id, int descriptor, short events) {
  ids_.push_back(id);
  polled_.push_back({.fd = descriptor, .events = events, .revents = 0});
}

void Look::addWaker(int descriptor) {
  polled_.push_back({.fd = descriptor, .events = POLLIN, .revents = 0});
}

bool Look::take(std::optional<Time> limit) {
  if (waitForAny(polled_, limit) >= 0) return true;
  // An interrupted wait is a short one: nothing was found.
  return errno == EINTR;
}

bool Look::isReady() const noexcept {
  return std::any_of(polled_.begin(), polled_.begin() + static_cast<std::ptrdiff_t>(ids_.size()),
                     [](const pollfd& polled) { return polled.revents != 0; });
}

std::vector<Look::Found> Look::found() const {
  std::vector<Found> found;
  for (std::size_t i = 0; i < ids_.size(); ++i) {
    if (polled_[i].revents != 0) found.push_back({ids_[i], readinessOf(polled_[i].revents)});
  }
  return found;
}

DescriptorWatches::Id DescriptorWatches::add(int descriptor, Readiness events, Handler handler) {
  const Id id = nextId_++;
  watches_.emplace(
      id, Watch{descriptor, eventsOf(events), std::make_shared<const Handler>(std::move(handler))});
  return id;
}

DescriptorWatches::SharedHandler DescriptorWatches::remove(Id id) {
  const auto found = watches_.find(id);
  if (found == watches_.end()) return nullptr;
  SharedHandler handler = std::move(found->second.handler);
  watches_.erase(found);
  return handler;
}

DescriptorWatches::SharedHandler DescriptorWatches::handler(Id id) const {
  const auto found = watches_.find(id);
  return found == watches_.end() ? nullptr : found->second.handler;
}

Look DescriptorWatches::look(Id barrier) const {
  Look look;
  for (const auto& [id, watch] : watches_) {
    if (id < barrier) look.add(id, watch.descriptor, watch.events);
  }
  return look;
}

}  // namespace kestrin
