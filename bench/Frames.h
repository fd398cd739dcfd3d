// What the benches feed: frames in pieces, and a receiver that counts them.
//
// Threads: one at a time. Lifetime: plain values. Errors: a bench that fed or counted wrongly ends
// the program, since its times would tell of something else.
#pragma once

#include <KestrinBLESDK/RcpReceiver.h>
#include <KestrinBLESDK/platform/NSData.h>
#include <KestrinBLESDK/platform/NSLog.h>
#include <KestrinBLESDK/platform/Platform.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace kestrin::bench {

/// The payloads that are measured, in bytes. The last is the longest that a receiver takes.
inline constexpr std::array<std::size_t, 5> kPayloads = {4, 16, 64, 256, 1021};
/// The pieces: a whole stream at once, what an ATT_MTU of 23 leaves, and what one of 247 leaves.
inline constexpr std::array<std::size_t, 3> kPieces = {0, 20, 244};

/// A stream of about 64 KiB: whole frames of one payload size behind each other, always the same.
struct Stream {
  std::vector<NSData> frames;
  /// The same bytes, cut into pieces.
  std::vector<NSData> pieces;
};
/// `piece`: bytes of each piece, 0 for the whole stream in one.
Stream makeStream(std::size_t payload, std::size_t piece);

class CountingReceiver final : public RcpReceiver {
 public:
  void dispatchRcpFrmReader(const std::optional<NSData>& frame) noexcept override {
    ++frames_;
    if (frame) bytes_ += frame->length();
  }
  [[nodiscard]] std::uint64_t frames() const noexcept { return frames_; }
  [[nodiscard]] std::uint64_t bytes() const noexcept { return bytes_; }

 private:
  std::uint64_t frames_ = 0;
  std::uint64_t bytes_ = 0;
};

/// A log that nobody reads, as in an application that asks for none.
class DeafSink final : public NSLogSink {
 public:
  [[nodiscard]] bool isListening() const noexcept override { return false; }
  void write(std::string_view /*line*/) noexcept override {}
};

/// A platform for managers that no radio works.
Platform deafPlatform();

/// Ends the program unless `right`.
void require(bool right, const char* what);

}  // namespace kestrin::bench
