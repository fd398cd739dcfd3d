// What the live screen of `kestrin monitor` shows, and how that fills a terminal of any size.
//
// Threads: plain values. Errors: none. Names and identifiers are made safe for a terminal here.
#pragma once

#include <KestrinBLESDK/platform/Clock.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "tools/kestrin/screen/ScreenLine.h"

namespace kestrin::app {

/// Arrivals per second over the last few seconds.
class ArrivalRate {
 public:
  static constexpr Time kSpan = std::chrono::seconds(4);

  void add(Time at, std::size_t bytes);
  /// Forgets what is too old at `now`.
  void forget(Time now);
  /// In tenths, of the arrivals and of their bytes.
  [[nodiscard]] std::uint64_t arrivals(Time now) const { return perSecond(count_, now); }
  [[nodiscard]] std::uint64_t bytes(Time now) const { return perSecond(bytes_, now); }

 private:
  struct Bucket {
    Time begin;
    std::size_t count;
    std::size_t bytes;
  };
  [[nodiscard]] std::uint64_t perSecond(std::size_t sum, Time now) const;

  std::deque<Bucket> buckets_;
  Time first_ = Time::max();
  std::size_t count_ = 0;
  std::size_t bytes_ = 0;
};

enum class LinkState { searching, choosing, connecting, linked, plugged, lost, closing, away };

struct ShownReader {
  /// Both as they came from the air.
  std::string name;
  std::string identifier;
  bool isWorked = false;
  /// The key that picks it, counted from 1; 0 for none.
  std::size_t key = 0;
};

struct ShownFrame {
  Time at{};
  std::vector<std::uint8_t> bytes;
};

struct MonitorView {
  /// The name on the command line; empty for none.
  std::string wanted;
  LinkState state = LinkState::searching;
  /// What is wrong with the radio, safe for a terminal; empty when it is on.
  std::string radio;
  std::string reader;
  std::string identifier;
  std::vector<ShownReader> readers;
  std::size_t linkUps = 0;
  std::size_t losses = 0;
  std::uint64_t frameCount = 0;
  std::uint64_t byteCount = 0;
  /// Per second, in tenths.
  std::uint64_t frameRate = 0;
  std::uint64_t byteRate = 0;
  /// The last ones, oldest first.
  std::deque<ShownFrame> frames;
  /// Safe for a terminal.
  std::deque<std::string> log;
};

/// The rows of the screen, at most `size.rows` of them. What matters most stays when there is
/// little room: how the link is, then how much arrives, then the last frames.
std::vector<ScreenLine> drawn(const MonitorView& view, ScreenSize size);

}  // namespace kestrin::app
