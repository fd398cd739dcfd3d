// The demo's timeline: a row for everything that passes between application, library and reader,
// and the figures at the end. It learns of it as any application could: through the two delegates
// and the library's log.
//
// Threads: the main run loop's.
// Lifetime: drop it before the run loop.
// Errors: none.
#pragma once

#include <KestrinBLESDK/KestrinBleMgr.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrin::app {

class Console;

class DemoTimeline final : public KestrinBLEProtocols,
                           public RcpReceiver,
                           public NSLogSink,
                           public std::enable_shared_from_this<DemoTimeline> {
 public:
  /// Each log line also goes to `furtherLog`.
  DemoTimeline(Console& console, std::shared_ptr<NSLogSink> furtherLog);

  /// Counts time from now on, by this loop.
  void begin(const std::shared_ptr<RunLoop>& loop);
  /// A headline over the rows that follow.
  void chapter(std::string_view title);
  /// What the application does.
  void application(std::string_view what);
  /// What happens on the radio's or the reader's side.
  void air(std::string_view what);
  /// What a reader notifies.
  void piece(const NSData& bytes);
  /// From now on the linked reader's values come raw, or as frames again.
  void setRaw(bool raw) { raw_ = raw; }

  void scanBleStatus(std::int64_t status) noexcept override;
  void scanningBleDeive(const std::shared_ptr<CBPeripheral>& peripheral) noexcept override;
  void plugChangedStatus(bool plugged) noexcept override;
  void dispatchRcpFrmReader(const std::optional<NSData>& frame) noexcept override;
  void write(std::string_view line) noexcept override;

  /// The accepted readers, in order.
  [[nodiscard]] const std::vector<std::shared_ptr<CBPeripheral>>& readers() const {
    return readers_;
  }
  [[nodiscard]] bool plugged() const { return plugged_; }
  [[nodiscard]] std::size_t plugReports() const { return plugReports_; }
  [[nodiscard]] std::size_t received() const { return frames_ + rawValues_; }
  /// How often the library has asked for the reader's information by itself.
  [[nodiscard]] std::size_t readerInfoRequests() const { return readerInfoRequests_; }
  /// The time since the beginning.
  [[nodiscard]] Time elapsed() const;
  /// The figures of what was seen and received.
  [[nodiscard]] std::string seenFigures();
  [[nodiscard]] std::string receivedFigures() const;

 private:
  /// A row that only repeats the one before is left out.
  void row(std::string_view who, std::string_view what);
  void takeSighting(std::string_view name);
  void settleSighting();

  Console& console_;
  const std::shared_ptr<NSLogSink> furtherLog_;
  std::weak_ptr<RunLoop> loop_;
  Time begin_{};
  // A sighting whose fate is not known yet: the filter's answer follows at once or never.
  std::optional<std::string> sighting_;
  std::string lastContent_;
  std::vector<std::shared_ptr<CBPeripheral>> readers_;
  bool raw_ = false;
  bool plugged_ = false;
  std::size_t ignored_ = 0;
  std::size_t plugReports_ = 0;
  std::size_t readerInfoRequests_ = 0;
  std::size_t frames_ = 0;
  std::size_t rawValues_ = 0;
  std::size_t pieces_ = 0;
  std::size_t pieceBytes_ = 0;
};

}  // namespace kestrin::app
