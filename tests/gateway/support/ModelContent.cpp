#include "gateway/support/ModelContent.h"

#include <algorithm>
#include <utility>

namespace kestrin::test {
namespace {

constexpr std::size_t kSector = 512;
constexpr std::size_t kPage = 4096;

}  // namespace

void ModelContent::apply(Bytes& bytes, const Change& change) {
  if (change.bytes.empty()) return bytes.resize(change.place);
  bytes.resize(std::max(bytes.size(), change.place + change.bytes.size()));
  std::ranges::copy(change.bytes, bytes.begin() + static_cast<std::ptrdiff_t>(change.place));
}

void ModelContent::change(Change change) {
  apply(seen_, change);
  unsynced_.push_back(std::move(change));
}

void ModelContent::damage(std::size_t place, std::uint8_t mask) {
  if (place < seen_.size()) seen_[place] ^= mask;
  if (place < stable_.size()) stable_[place] ^= mask;
}

void ModelContent::becomeStable() {
  for (const Change& change : unsynced_) apply(stable_, change);
  unsynced_.clear();
}

void ModelContent::loseSome(std::mt19937_64& random, bool forgetPages) {
  for (const Change& change : unsynced_) {
    if (random() % 2 == 0) apply(stable_, change);
  }
  unsynced_.clear();
  if (forgetPages) seen_ = stable_;
}

ModelContent ModelContent::afterCut(std::mt19937_64& random) const {
  ModelContent after;
  after.stable_ = stable_;
  switch (unsynced_.empty() ? 0 : random() % 5) {
    case 0:
      break;
    case 1:
      for (const Change& change : unsynced_) apply(after.stable_, change);
      break;
    case 2:
      applyFirst(after.stable_, random);
      break;
    case 3:
      applyAny(after.stable_, random, false);
      break;
    default:
      applyAny(after.stable_, random, true);
  }
  after.seen_ = after.stable_;
  return after;
}

/// The first changes, and a part of the next one.
void ModelContent::applyFirst(Bytes& bytes, std::mt19937_64& random) const {
  const auto whole = static_cast<std::size_t>(random() % (unsynced_.size() + 1));
  for (std::size_t i = 0; i < whole; ++i) apply(bytes, unsynced_[i]);
  if (whole == unsynced_.size() || unsynced_[whole].bytes.empty()) return;
  Change part = unsynced_[whole];
  part.bytes.resize(static_cast<std::size_t>(random() % part.bytes.size()) + 1);
  apply(bytes, part);
}

/// Each change by itself, so that a later one may be there and an earlier one not.
void ModelContent::applyAny(Bytes& bytes, std::mt19937_64& random, bool garbles) const {
  for (const Change& change : unsynced_) {
    switch (random() % 3) {
      case 0:
        break;
      case 1:
        apply(bytes, change);
        break;
      default:
        if (!change.bytes.empty()) applySectors(bytes, change, random, garbles);
    }
  }
}

/// Some of a write's sectors. One that was under way when the power failed may hold anything, but
/// no byte outside the write changes.
void ModelContent::applySectors(Bytes& bytes, const Change& change, std::mt19937_64& random,
                                bool garbles) {
  const std::size_t unit = random() % 2 == 0 ? kSector : kPage;
  std::size_t at = 0;
  while (at < change.bytes.size()) {
    const std::size_t place = change.place + at;
    const std::size_t length = std::min(unit - place % unit, change.bytes.size() - at);
    const auto begin = change.bytes.begin() + static_cast<std::ptrdiff_t>(at);
    at += length;
    if (random() % 2 == 0) continue;
    Change part{place, Bytes(begin, begin + static_cast<std::ptrdiff_t>(length))};
    if (garbles && random() % 8 == 0) {
      for (auto& byte : part.bytes) byte = static_cast<std::uint8_t>(random());
    }
    apply(bytes, part);
  }
}

}  // namespace kestrin::test
