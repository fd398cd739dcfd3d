// What a link asks of the radio around it.
//
// Threads: the radio's own thread. Lifetime: outlives its links. Errors: none.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace kestrin::bluez {

class LinkHost {
 public:
  virtual ~LinkHost() = default;
  /// Whether an earlier link to that device is still being ended; `Link::resume` is called after
  /// that.
  [[nodiscard]] virtual bool isDisconnecting(const std::string& device) const = 0;
  /// Has the daemon disconnect a device; `report` is called once, at the first evidence of that.
  virtual void disconnect(const std::string& device, std::function<void()> report) = 0;
  /// Discovers on the device's adapter until the link with that number ends its search.
  virtual void beginSearch(const std::string& device, std::uint64_t link) = 0;
  virtual void endSearch(const std::string& device, std::uint64_t link) = 0;
  /// This user may not work the device's adapter.
  virtual void refused(const std::string& device) = 0;
  /// The link with that number is over; the host lets go of it.
  virtual void linkEnded(const std::string& device, std::uint64_t link) = 0;
};

}  // namespace kestrin::bluez
