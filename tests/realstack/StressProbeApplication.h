// An application that counts what it is told.
//
// Threads: the main run loop's. Lifetime: its manager is made and dropped with it.
// Errors: none.
#pragma once

#include <KestrinBLESDK/KestrinBleMgr.h>
#include <KestrinBLESDK/platform/MainRunLoop.h>
#include <KestrinBLESDK/platform/NSLog.h>
#include <KestrinBLESDK/platform/Radio.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace kestrin::stress {

/// The log's lines that tell what the callbacks do not.
class Log final : public NSLogSink {
 public:
  [[nodiscard]] bool isListening() const noexcept override { return true; }
  void write(std::string_view line) noexcept override;

  std::uint32_t disconnections = 0;
  bool poweredOn = false;
};

class Application final : public KestrinBLEProtocols,
                          public RcpReceiver,
                          public std::enable_shared_from_this<Application> {
 public:
  /// Weak references to what must be gone with the application.
  struct Remains {
    std::weak_ptr<KestrinBleMgr> manager;
    std::weak_ptr<Application> application;
    std::weak_ptr<Log> log;
    std::weak_ptr<Radio> radio;
  };

  /// One with a platform, a radio and a manager of its own.
  static std::shared_ptr<Application> make(const std::shared_ptr<MainRunLoop>& loop);

  void scanningBleDeive(const std::shared_ptr<CBPeripheral>& reader) noexcept override;
  void plugChangedStatus(bool plugged) noexcept override;
  void dispatchRcpFrmReader(const std::optional<NSData>& frame) noexcept override;

  [[nodiscard]] Remains remains();
  /// How often this frame was delivered since `frames` was emptied.
  [[nodiscard]] std::size_t deliveries(const NSData& frame) const;
  /// Whether the values of a burst of so many came, each once and in order.
  [[nodiscard]] bool burstIsComplete(std::uint32_t count) const;

  std::shared_ptr<KestrinBleMgr> manager;
  std::shared_ptr<Log> log;
  std::shared_ptr<Radio> radio;
  std::uint32_t found = 0;
  std::uint32_t plugged = 0;
  std::uint32_t unplugged = 0;
  std::vector<NSData> frames;
};

}  // namespace kestrin::stress
