// The readers that a search has seen, and which of them are meant.
//
// Threads: the main run loop's.
// Lifetime: keeps the devices that it has seen.
// Errors: none.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "KestrinBLESDK/Reader.h"
#include "KestrinBLESDK/platform/CBPeripheral.h"
#include "KestrinBLESDK/platform/Radio.h"

namespace kestrin::reader {

class ReaderChoice final {
 public:
  struct Seen {
    std::shared_ptr<CBPeripheral> device;
    SeenReader reader;
  };

  /// `radio`: the one itself, which the readers that are meant are of.
  ReaderChoice(std::string wanted, std::shared_ptr<Radio> radio)
      : wanted_(std::move(wanted)), radio_(std::move(radio)) {}

  /// Takes a sighting; true when the device is seen for the first time.
  bool take(const std::shared_ptr<CBPeripheral>& device);
  [[nodiscard]] const std::vector<Seen>& seen() const noexcept { return seen_; }
  /// The best matches, in the order of their sighting, without those that are held. Where the best
  /// is held, a weaker match is not meant instead.
  [[nodiscard]] std::vector<Seen> meant() const;
  /// Whether one of the seen is meant by its identifier, so that no other can be.
  [[nodiscard]] bool isIdentified() const;
  /// Null when none of that identifier was seen.
  [[nodiscard]] const Seen* find(std::string_view identifier) const;
  /// "no reader whose name contains 'KVR' was found within 30 s".
  [[nodiscard]] std::string notFound(std::string_view within) const;
  /// "in range: 'TQM_HOLV-1', ...", and which of them are held.
  [[nodiscard]] std::string inRange() const;
  /// "'KVR-0417' is held by another Reader": of a device that can be none but the one that is
  /// meant, since it has the identifier or the whole name. Empty when there is none.
  [[nodiscard]] std::string held() const;
  /// "'KVR' fits several readers: ...".
  [[nodiscard]] std::string ambiguous(const std::vector<Seen>& meant) const;

 private:
  enum class Match { none, part, name, identifier };
  [[nodiscard]] Match match(const SeenReader& reader) const;

  const std::string wanted_;
  const std::shared_ptr<Radio> radio_;
  std::vector<Seen> seen_;
};

/// Whether a `Reader` of this process holds it.
bool isHeld(const ReaderChoice::Seen& seen);

/// A text from the air in quotation marks; whatever is not printable ASCII as `\xNN`.
std::string inQuotes(std::string_view text);

/// A span in seconds, for a person: "30 s", "2.5 s".
std::string inSeconds(Time span);

}  // namespace kestrin::reader
