// Byte streams that lie as close to the rules' edges as can be: mostly frames that are right or
// nearly so, cut into pieces at awkward places.
//
// Threads: one. Lifetime: owns its generator. Errors: none.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <span>
#include <vector>

#include "support/ReferenceFrame.h"

namespace kestrin::test {

class StreamGenerator {
 public:
  explicit StreamGenerator(std::uint32_t seed) : random_(seed) {}

  /// The arrivals of one stream.
  std::vector<Bytes> arrivals() {
    // Long frames are dear to compare, so few streams have them.
    longFrames_ = oneIn(64);
    Bytes stream;
    for (std::size_t segments = 1 + below(5); segments > 0; --segments) {
      const Bytes next = segment();
      stream.insert(stream.end(), next.begin(), next.end());
    }
    return cut(stream);
  }

 private:
  std::size_t below(std::size_t bound) { return random_() % bound; }
  bool oneIn(std::size_t chance) { return below(chance) == 0; }

  std::uint8_t byte() {
    static constexpr std::uint8_t kTelling[] = {0xBB, 0x7E, 0x00, 0x01, 0x03, 0xFD, 0xFE, 0xFF};
    return oneIn(3) ? kTelling[below(std::size(kTelling))] : static_cast<std::uint8_t>(below(256));
  }
  Bytes bytes(std::size_t count) {
    Bytes some(count);
    std::ranges::generate(some, [this] { return byte(); });
    return some;
  }
  std::uint8_t type() {
    // Mostly one that is accepted.
    const std::uint8_t any = byte();
    return oneIn(8) ? any : static_cast<std::uint8_t>(any | (1 + below(3)));
  }
  Bytes payload() {
    if (longFrames_ && oneIn(2)) return bytes(1018 + below(7));
    if (oneIn(10)) return referenceFrame(type(), byte(), bytes(below(4)));
    return oneIn(6) ? Bytes{} : bytes(below(13));
  }
  Bytes frame() { return referenceFrame(type(), byte(), payload()); }

  Bytes segment() {
    switch (below(14)) {
      case 0:
        return withFlippedBit(frame());
      case 1:
        return withWrongEndMark(frame());
      case 2:
        return withSwappedCrc(frame());
      case 3:
        return cutShort(frame());
      case 4:
        return withWrongLength(frame());
      case 5:
        return joined({Bytes(1 + below(3), 0xBB), oneIn(2) ? frame() : Bytes{}});
      case 6:
        return bytes(1 + below(12));
      case 7:
        return joined({frame(), bytes(1)});
      default:
        return frame();
    }
  }

  Bytes withFlippedBit(Bytes frame) {
    std::uint8_t& hit = frame[below(frame.size())];
    hit = static_cast<std::uint8_t>(hit ^ (1U << below(8)));
    return frame;
  }
  Bytes withWrongEndMark(Bytes frame) {
    frame[frame.size() - 3] = byte();
    return frame;
  }
  static Bytes withSwappedCrc(Bytes frame) {
    std::swap(frame[frame.size() - 1], frame[frame.size() - 2]);
    return frame;
  }
  Bytes cutShort(Bytes frame) {
    frame.resize(1 + below(frame.size()));
    return frame;
  }
  Bytes withWrongLength(Bytes frame) {
    static constexpr std::uint16_t kLengths[] = {0x000, 0x001, 0x0FF, 0x100, 0x3FC,
                                                 0x3FD, 0x3FE, 0x3FF, 0x400, 0xFFFF};
    const std::uint16_t length = kLengths[below(std::size(kLengths))];
    frame[3] = static_cast<std::uint8_t>(length >> 8);
    frame[4] = static_cast<std::uint8_t>(length & 0xFF);
    return frame;
  }

  std::vector<Bytes> cut(const Bytes& stream) {
    const std::size_t manner = below(stream.size() > 300 ? 3 : 5);
    std::vector<Bytes> pieces;
    for (std::size_t at = 0; at < stream.size();) {
      if (oneIn(8)) pieces.emplace_back();
      const std::size_t left = stream.size() - at;
      const std::size_t size = std::min(left, pieceSize(manner, std::span(stream).subspan(at)));
      pieces.push_back(part(stream, at, size));
      at += size;
    }
    while (oneIn(3)) pieces.emplace_back();
    return pieces;
  }
  std::size_t pieceSize(std::size_t manner, std::span<const std::uint8_t> rest) {
    switch (manner) {
      case 0:
        return rest.size();
      case 1:
        return rest.size() > 300 ? 200 + below(300) : 20;
      case 2: {
        // Up to and with a preamble, or a little further: where a frame may be lost.
        const auto found =
            std::ranges::find(rest.subspan(std::min<std::size_t>(1, rest.size())), 0xBB);
        return static_cast<std::size_t>(found - rest.begin()) + 1 + below(3);
      }
      case 3:
        return 1 + below(3);
      default:
        return 1 + below(30);
    }
  }

  std::mt19937 random_;
  bool longFrames_ = false;
};

}  // namespace kestrin::test
