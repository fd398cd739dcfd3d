// The checksum of the log: CRC-32C (Castagnoli), by the processor where it can.
//
// Threads: pure functions. Errors: none.
#pragma once

#include <cstdint>
#include <span>

namespace kestrin::gateway {

std::uint32_t crc32c(std::span<const std::uint8_t> bytes) noexcept;
/// The same without the processor's help.
std::uint32_t crc32cByTable(std::span<const std::uint8_t> bytes) noexcept;

}  // namespace kestrin::gateway
