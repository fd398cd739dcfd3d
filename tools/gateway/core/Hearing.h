// How strong the radio has heard each device at its last sighting. A link has no sightings, so of a
// reader that is plugged in it is what its search has heard.
//
// Threads: the main run loop's.
// Lifetime: shared by whoever listens and the radio that passes everything through it.
// Errors: none.
#pragma once

#include "KestrinBLESDK/platform/Radio.h"

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace kestrin::gateway {

class Hearing {
 public:
  /// Of how many devices it is remembered; a busy hall has thousands.
  static constexpr std::size_t kMost = 512;

  void heard(const std::string& identifier, int signal);
  /// In dBm; absent where it was not heard, or the radio did not say how strong.
  [[nodiscard]] std::optional<int> signalOf(const std::string& identifier) const;

 private:
  struct Sighting {
    int signal = 0;
    std::uint64_t turn = 0;
  };
  std::map<std::string, Sighting> sightings_;
  std::uint64_t turns_ = 0;
};

/// A radio that passes everything on, and has sightings noted besides.
std::shared_ptr<Radio> listened(std::shared_ptr<Radio> radio, std::shared_ptr<Hearing> hearing);

}  // namespace kestrin::gateway
