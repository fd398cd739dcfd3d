// The radio that a command works with, and the run loop it works on.
//
// Threads: one thread makes it, turns its loop and drops it.
// Lifetime: drop everything that uses the platform before; what the radio was asked to do is handed
// over before the drop returns.
// Errors: a radio that this build or this machine does not have is told on the console.
#pragma once

#include <KestrinBLESDK/RadioWatch.h>
#include <KestrinBLESDK/platform/MainRunLoop.h>
#include <KestrinBLESDK/platform/Platform.h>

#include <memory>
#include <optional>
#include <string>

namespace kestrin::app {

class Console;

enum class RadioKind { bluez, simulated };

struct RadioRequest {
  RadioKind kind = RadioKind::bluez;
  /// The adapter of the real radio; absent: its own choice.
  std::optional<std::string> adapter;
  /// Whether the library's log goes to standard error, or to `logTo` if there is one.
  bool log = false;
  std::shared_ptr<NSLogSink> logTo{};
  /// Whether the simulated radio runs in virtual time.
  bool virtualTime = false;
  /// The file for a recording; absent: none.
  std::optional<std::string> record;
};

/// What has to happen when the process leaves the foreground and when it comes back.
class Background {
 public:
  virtual ~Background();
  /// Before the application-entered-background notification: what ends from now on stays ended.
  virtual void leave() = 0;
  /// Whether everything that the notification ended is down.
  [[nodiscard]] virtual bool isDown() const = 0;
  virtual void comeBack() = 0;
};

class RadioEnvironment {
 public:
  RadioEnvironment() = default;
  virtual ~RadioEnvironment();
  RadioEnvironment(const RadioEnvironment&) = delete;
  RadioEnvironment& operator=(const RadioEnvironment&) = delete;

  [[nodiscard]] virtual Platform platform() const = 0;
  [[nodiscard]] virtual MainRunLoop& loop() const = 0;
  /// The watch of the radio, which is not part of a conversation and so not recorded.
  [[nodiscard]] std::shared_ptr<RadioWatch> radioWatch() const;

  /// Asks the running command to come to its end; on the loop's thread.
  void interrupt() noexcept { interrupted_ = true; }
  [[nodiscard]] bool interrupted() const noexcept { return interrupted_; }

  /// The running command's, null for none; it must take itself back.
  void setBackground(Background* background) noexcept { background_ = background; }
  /// From `leave` to `comeBack` the process is about to be, or was, suspended.
  void leave();
  void comeBack();
  [[nodiscard]] bool leaving() const noexcept { return leaving_; }
  [[nodiscard]] bool isDown() const { return background_ == nullptr || background_->isDown(); }
  /// How long the process was stopped altogether, which counts against nobody's time limit.
  [[nodiscard]] Time timeAway() const noexcept { return timeAway_; }
  void addTimeAway(Time span) noexcept { timeAway_ += span; }

 private:
  Background* background_ = nullptr;
  bool leaving_ = false;
  Time timeAway_{};
  bool interrupted_ = false;
};

/// The radio that was asked for; null when it cannot be had, which the console has been told.
std::unique_ptr<RadioEnvironment> makeRadioEnvironment(const RadioRequest& request,
                                                       Console& console);

/// On the real radio: lets the environment leave when the machine is about to sleep, and come back
/// when it is awake, for as long as the answer is kept. Drop it before the environment.
std::shared_ptr<void> watchSleep(const RadioRequest& request, RadioEnvironment& environment);

/// Standard error when `shown`, else a log that nobody reads.
std::shared_ptr<NSLogSink> logSink(bool shown);

}  // namespace kestrin::app
