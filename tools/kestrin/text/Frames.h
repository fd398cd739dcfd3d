// A look into RCP frames, for a person. The layout stands in docs/protocol.md.
//
// Threads: pure functions. Errors: bytes that are not whole frames are told in words.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace kestrin::app {

/// What keeps `bytes` from being one whole, right frame; empty when they are one.
std::string whyNoFrame(std::span<const std::uint8_t> bytes);

/// `type 01, code 03, 5 bytes of payload`, or why the bytes are not a frame.
std::string describeFrame(std::span<const std::uint8_t> bytes);

/// `1 byte`, `2 bytes`.
std::string countOf(std::uint64_t count, const std::string& thing);

}  // namespace kestrin::app
