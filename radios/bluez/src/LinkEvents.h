// The link's reports to a central manager.
//
// Threads: any; the events run on the holder's run loop.
// Lifetime: a central manager that has been dropped is told nothing.
// Errors: none.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "Link.h"

namespace kestrin::bluez {

/// The reason of an end that the application has asked for.
NSError linkGivenUp();
/// The link is up; from now on the device's requests go to it.
void postConnected(const LinkHolder& holder, const LinkAddress& link,
                   const std::shared_ptr<Peripheral>& peripheral);
/// The link or the attempt is over; no error: that was asked for.
void postDisconnected(const LinkHolder& holder, std::uint64_t link,
                      const std::shared_ptr<Peripheral>& peripheral,
                      const std::optional<NSError>& error);

}  // namespace kestrin::bluez
