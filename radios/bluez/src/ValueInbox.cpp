#include "ValueInbox.h"

#include <utility>

namespace kestrin::bluez {
namespace {

// A backlog is rare: what it took is given back.
constexpr std::size_t kMostKept = 64UL * 1024;

}  // namespace

void Values::clear() {
  if (capacity() > kMostKept) *this = {};
  bytes_.clear();
  ends_.clear();
}

bool ValueInbox::add(std::span<const ValueBytes> values) {
  const std::scoped_lock lock(mutex_);
  const bool wasEmpty = values_.empty();
  for (const auto& value : values) values_.add(value);
  return open_ && wasEmpty && !values_.empty();
}

bool ValueInbox::open() {
  const std::scoped_lock lock(mutex_);
  open_ = true;
  return !values_.empty();
}

const Values& ValueInbox::take() {
  taken_.clear();
  const std::scoped_lock lock(mutex_);
  std::swap(values_, taken_);
  return taken_;
}

}  // namespace kestrin::bluez
