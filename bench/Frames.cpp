#include "Frames.h"

#include <KestrinBLESDK/RcpFrame.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <span>

namespace kestrin::bench {
namespace {

constexpr std::size_t kStreamBytes = 64UL * 1024;

}  // namespace

Stream makeStream(std::size_t payload, std::size_t piece) {
  std::mt19937 random(417);
  std::uniform_int_distribution<int> anyByte(0, 255);
  Stream stream;
  std::vector<std::uint8_t> all;
  for (std::size_t i = 0; i < kStreamBytes / (payload + rcp::kSmallestFrame); ++i) {
    std::vector<std::uint8_t> bytes(payload);
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(anyByte(random));
    stream.frames.push_back(*buildRcpFrame(0x01, 0x22, bytes));
    all.insert(all.end(), stream.frames.back().begin(), stream.frames.back().end());
  }
  if (piece == 0) piece = all.size();
  const std::span<const std::uint8_t> rest(all);
  for (std::size_t at = 0; at < all.size(); at += piece) {
    stream.pieces.emplace_back(rest.subspan(at, std::min(piece, all.size() - at)));
  }
  return stream;
}

Platform deafPlatform() {
  Platform platform;
  platform.log = std::make_shared<DeafSink>();
  return platform;
}

void require(bool right, const char* what) {
  if (right) return;
  std::fprintf(stderr, "This bench measured something else: %s\n", what);
  std::abort();
}

}  // namespace kestrin::bench
