// A reader's search: which of the readers in range it takes.
#include <chrono>

#include "KestrinBLESDK/reader/ReaderCore.h"
#include "KestrinBLESDK/recording/RecordedPlatform.h"

namespace kestrin::reader {
namespace {

// After the first reader that is meant, others that are meant as well get this long to be seen: to
// take whichever was heard first would sooner or later be to take the wrong one.
constexpr Time kSettling = std::chrono::milliseconds(500);

}  // namespace

void ReaderCore::scanningBleDeive(const std::shared_ptr<CBPeripheral>& device) noexcept {
  if (phase_ == ReaderPhase::closed) return;
  if (device_) {
    // A sighting that was under way when the scan ended has made the manager take that reader for
    // its own.
    if (device != device_ && link_ != Link::none) manager_->connectBLE(device_);
    return;
  }
  if (choice_.take(device)) tell(&ReaderHandlers::onSeen);
  lookAround();
}

void ReaderCore::lookAround() {
  if (phase_ != ReaderPhase::searching || device_) return;
  const auto meant = choice_.meant();
  const bool isClear = choice_.isIdentified() || options_.ambiguity == Ambiguity::takeFirst ||
                       (settled_ && meant.size() == 1);
  if (meant.empty()) {
    // Whoever comes next gives others their time again.
    settled_ = false;
    if (const std::string why = choice_.held(); !why.empty()) refuse(ReaderError::held, why);
  } else if (isClear) {
    take(meant.front());
  } else if (settled_) {
    refuse(ReaderError::ambiguous, choice_.ambiguous(meant));
  } else if (!settling_) {
    settling_ = arm(kSettling, &ReaderCore::settle);
  }
}

void ReaderCore::lookLater() {
  disarm(settling_);
  settled_ = false;
  refusal_.clear();
}

void ReaderCore::settle() {
  settling_.reset();
  settled_ = true;
  lookAround();
}

void ReaderCore::refuse(ReaderError code, const std::string& text) {
  if (text == refusal_) return;
  refusal_ = text;
  tellTrouble(code, text);
}

bool ReaderCore::choose(std::string_view identifier) {
  const ReaderChoice::Seen* const seen = choice_.find(identifier);
  if (seen == nullptr || phase_ != ReaderPhase::searching || isHeld(*seen)) {
    return false;
  }
  chosen_ = seen->device;
  later(&ReaderCore::takeChosen);
  return true;
}

void ReaderCore::takeChosen() {
  const auto chosen = std::exchange(chosen_, nullptr);
  if (phase_ != ReaderPhase::searching || !chosen) return;
  for (const auto& seen : choice_.seen()) {
    if (seen.device != chosen) continue;
    take(seen);
    return;
  }
}

void ReaderCore::take(const ReaderChoice::Seen& seen) {
  claim_ = Claim::take({unrecorded(seen.device), radio_, seen.reader});
  if (!claim_) {
    // Somebody was faster. It is taken when they give it up, unless another one is by then.
    refuse(ReaderError::held,
           inQuotes(seen.reader.name) +
               " is held by another Reader of this program; drop that one first");
    return;
  }
  device_ = seen.device;
  name_ = seen.reader.name;
  identifier_ = seen.reader.identifier;
  limit_.stop();
  connect();
}

}  // namespace kestrin::reader
