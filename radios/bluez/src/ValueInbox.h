// Values on their way from a notification stream to the main run loop: unbounded, with one wake-up
// for a batch. Closed at first, so that an event can be put in front of the first value.
//
// Their bytes lie one behind the other in memory that is used again and again, so that the stream's
// thread does nothing but copy.
//
// Threads: `add` and `open` on any; `take` on one at a time.
// Lifetime: what was taken is valid until the next `take`.
// Errors: none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>
#include <vector>

namespace kestrin::bluez {

using ValueBytes = std::span<const std::uint8_t>;

/// Values in a row.
class Values {
 public:
  void add(ValueBytes value) {
    bytes_.insert(bytes_.end(), value.begin(), value.end());
    ends_.push_back(bytes_.size());
  }
  void clear();
  [[nodiscard]] bool empty() const noexcept { return ends_.empty(); }
  [[nodiscard]] std::size_t size() const noexcept { return ends_.size(); }
  [[nodiscard]] ValueBytes operator[](std::size_t index) const {
    const std::size_t begin = index == 0 ? 0 : ends_[index - 1];
    return {bytes_.data() + begin, ends_[index] - begin};
  }
  /// How many bytes of memory they hold.
  [[nodiscard]] std::size_t capacity() const noexcept {
    return bytes_.capacity() + ends_.capacity() * sizeof(std::size_t);
  }

 private:
  std::vector<std::uint8_t> bytes_;
  std::vector<std::size_t> ends_;
};

class ValueInbox {
 public:
  /// Adds values; returns whether somebody must be told to take what is there.
  bool add(std::span<const ValueBytes> values);
  /// Lets values through from now on; returns as `add` does.
  bool open();
  const Values& take();

 private:
  std::mutex mutex_;
  Values values_;
  Values taken_;
  bool open_ = false;
};

}  // namespace kestrin::bluez
