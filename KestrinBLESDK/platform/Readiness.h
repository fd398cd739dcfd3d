/// \file
/// What a descriptor is watched for, and what it is found to be, see `MainRunLoop::watch`.
///
/// Threads: plain values.
#pragma once

#include <cstdint>

namespace kestrin {
/// \addtogroup platform
/// @{

/// One of these, or several joined by `|`. The first two are asked for; the others are reported
/// whether asked for or not.
enum class Readiness : std::uint8_t {
  readable = 1,  ///< A read does not block. At the end of a stream it reads nothing.
  writable = 2,  ///< A write does not block, at least of a little.
  hungUp = 4,    ///< The other end is closed. What it sent before can still be read.
  failed = 8,    ///< The descriptor has failed, for example a pipe that nobody reads any more.
  closed = 16,   ///< The number names no open descriptor. The watch has ended.
};

/// Both.
constexpr Readiness operator|(Readiness a, Readiness b) noexcept {
  return static_cast<Readiness>(static_cast<unsigned>(a) | static_cast<unsigned>(b));
}

/// Whether `found` has `wanted` in it, or any of it when that is several.
constexpr bool hasAny(Readiness found, Readiness wanted) noexcept {
  return (static_cast<unsigned>(found) & static_cast<unsigned>(wanted)) != 0;
}

/// @}

}  // namespace kestrin
