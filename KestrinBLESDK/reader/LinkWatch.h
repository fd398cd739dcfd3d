// The begin and the end of a manager's links. The manager's own callbacks tell when a link can be
// used; that there is one, and that it is gone, only its radio's events do. So the manager is given
// a radio that passes everything on, and reports those events besides.
//
// Threads: the main run loop's.
// Lifetime: the listener is held weakly.
// Errors: none.
#pragma once

#include <memory>

#include "KestrinBLESDK/platform/CBPeripheral.h"
#include "KestrinBLESDK/platform/Radio.h"

namespace kestrin::reader {

/// Called behind the manager, which has handled the event by then.
class LinkListener {
 public:
  virtual ~LinkListener() = default;
  /// The radio has reported a state: where it is powered on, the manager scans from now on.
  virtual void radioReported() noexcept = 0;
  virtual void linkBegan(const std::shared_ptr<CBPeripheral>& device) noexcept = 0;
  /// A link or an attempt has ended.
  virtual void linkEnded(const std::shared_ptr<CBPeripheral>& device) noexcept = 0;
};

/// A radio that reports the links of the central managers made on it.
std::shared_ptr<Radio> watched(std::shared_ptr<Radio> radio, std::weak_ptr<LinkListener> listener);

}  // namespace kestrin::reader
