// A reader's search: which of the readers in range it takes.
#include <chrono>

#include "KestrinBLESDK/reader/ReaderCore.h"

namespace kestrin {
namespace {

// After the first reader that is meant, others that are meant as well get this long to be seen: to
// take whichever was heard first would sooner or later be to take the wrong one.
constexpr Time kSettling = std::chrono::milliseconds(500);

}  // namespace

void Reader::Core::scanningBleDeive(const std::shared_ptr<CBPeripheral>& device) noexcept {
  const auto self = shared_from_this();
  if (phase_ == ReaderPhase::away || phase_ == ReaderPhase::closed) return;
  if (device_) {
    // A sighting that was under way when the scan ended has made the manager take that reader for
    // its own.
    if (device != device_ && link_ != Link::none) manager_->connectBLE(device_);
    return;
  }
  if (choice_.take(device)) tell(&ReaderHandlers::onSeen);
  if (phase_ == ReaderPhase::searching) lookAround();
}

void Reader::Core::lookAround() {
  if (phase_ != ReaderPhase::searching || device_) return;
  const auto meant = choice_.meant();
  if (meant.empty()) {
    if (const std::string why = choice_.held(); !why.empty()) refuse(ReaderError::held, why);
  } else if (choice_.isIdentified() || options_.ambiguity == Ambiguity::takeFirst) {
    take(meant.front());
  } else if (!settled_) {
    if (!settling_) settling_ = arm(kSettling, &Core::settle);
  } else if (meant.size() == 1) {
    take(meant.front());
  } else {
    refuse(ReaderError::ambiguous, choice_.ambiguous(meant));
  }
}

void Reader::Core::settle() {
  settling_.reset();
  settled_ = true;
  lookAround();
}

void Reader::Core::refuse(ReaderError code, const std::string& text) {
  if (text == refusal_) return;
  refusal_ = text;
  tellTrouble(code, text);
}

bool Reader::Core::choose(std::string_view identifier) {
  const reader::ReaderChoice::Seen* const seen = choice_.find(identifier);
  if (seen == nullptr || phase_ != ReaderPhase::searching || reader::Claim::isHeld(seen->device)) {
    return false;
  }
  chosen_ = seen->device;
  later(&Core::takeChosen);
  return true;
}

void Reader::Core::takeChosen() {
  const auto chosen = std::exchange(chosen_, nullptr);
  if (phase_ != ReaderPhase::searching || !chosen) return;
  for (const auto& seen : choice_.seen()) {
    if (seen.device != chosen) continue;
    take(seen);
    return;
  }
}

void Reader::Core::take(const reader::ReaderChoice::Seen& seen) {
  claim_ = reader::Claim::take(seen.device);
  if (!claim_) return;  // Somebody was faster; it is looked for when they give it up.
  device_ = seen.device;
  name_ = seen.reader.name;
  identifier_ = seen.reader.identifier;
  disarm(settling_);
  limit_.stop();
  connect();
}

}  // namespace kestrin
