// The link's reports to a central manager.
//
// Threads: any; the events run on the holder's run loop.
// Lifetime: a central manager that has been dropped is told nothing.
// Errors: none.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "KestrinBLESDK/platform/CBCentralManager.h"
#include "KestrinBLESDK/platform/RunLoop.h"
#include "Peripheral.h"

namespace kestrin::bluez {

/// A central manager that asked for the link, and where it hears of that.
struct LinkHolder {
  std::uint64_t central = 0;
  std::weak_ptr<CBCentralManager> front;
  std::weak_ptr<CBCentralManagerDelegate> delegate;
  std::weak_ptr<RunLoop> loop;
};

/// The link is up; from now on the device's requests go to it.
void postConnected(const LinkHolder& holder, const std::shared_ptr<LinkLine>& link,
                   const std::shared_ptr<Peripheral>& peripheral);
/// The link or the attempt is over; no error: that was asked for.
void postDisconnected(const LinkHolder& holder, std::uint64_t link,
                      const std::shared_ptr<Peripheral>& peripheral,
                      const std::optional<NSError>& error);

}  // namespace kestrin::bluez
