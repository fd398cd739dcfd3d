// Numbers that tell central managers, radios, links and calls apart.
//
// Threads: any. Lifetime: nothing is kept. Errors: none.
#pragma once

#include <cstdint>

namespace kestrin::bluez {

/// A number that nothing else in the process has: devices outlive central managers and links, and
/// must not take one for another.
std::uint64_t nextId() noexcept;

}  // namespace kestrin::bluez
