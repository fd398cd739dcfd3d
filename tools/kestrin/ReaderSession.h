// One reader, from the search for it to the end of its link: what `monitor` and `send` share.
// Reports the reader found and each plug report and frame.
//
// Threads: the thread that turns the environment's loop.
// Lifetime: drop it before its environment and its report. `close` before the drop, or the link's
// end is not waited for. Errors: told on the console.
#pragma once

#include <KestrinBLESDK/KestrinBleMgr.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/kestrin/RadioEnvironment.h"
#include "tools/kestrin/RadioWatch.h"
#include "tools/kestrin/RecordedManager.h"

namespace kestrin::app {

class Console;
class SessionReport;

class ReaderSession {
 public:
  ReaderSession(RadioEnvironment& environment, Console& console, SessionReport& report,
                std::string wantedName);
  ~ReaderSession();
  ReaderSession(const ReaderSession&) = delete;
  ReaderSession& operator=(const ReaderSession&) = delete;

  /// Searches for the first reader whose name contains the wanted one and brings its link up, each
  /// for at most `timeout`. False when that failed, which has been told, or was interrupted.
  bool plugIn(Time timeout);
  /// Sends one frame; false when it was refused.
  bool send(const NSData& frame);
  /// Lets events happen for `duration`, or without end. Ends early when interrupted, when the
  /// output can not be written, and with `untilUnplugged` when the reader is unplugged.
  void listen(std::optional<Time> duration, bool untilUnplugged);
  /// Lets happen everything that is due by now.
  void catchUp();
  /// Closes and waits for the link to be down; false when that took too long, which has been told.
  bool close();

  [[nodiscard]] bool plugged() const noexcept { return plugged_; }
  /// Whether the command shall come to its end.
  [[nodiscard]] bool ending() const;
  /// The reader's name as it may be printed; empty before one is found.
  [[nodiscard]] const std::string& readerName() const noexcept { return readerName_; }

 private:
  class Delegate;

  void takeReader(const std::shared_ptr<CBPeripheral>& peripheral);
  void takePlugReport(bool plugged);
  void takeFrame(const std::optional<NSData>& frame);
  void takeRadioState(CBManagerState state);
  void connect();
  bool find(Time timeout);
  void tellNotFound(Time timeout);
  void tellNotPlugged(Time timeout);

  RadioEnvironment& environment_;
  Console& console_;
  SessionReport& report_;
  const std::string wantedName_;
  const std::unique_ptr<RecordedManager> manager_;
  const std::shared_ptr<Delegate> delegate_;
  const std::unique_ptr<RadioWatch> watch_;
  std::vector<std::string> namesSeen_;
  std::shared_ptr<CBPeripheral> reader_;
  std::string readerName_;
  bool plugged_ = false;
  bool linkWanted_ = false;  // From each connection request to the report of its end.
  bool closing_ = false;
  bool inClose_ = false;
};

}  // namespace kestrin::app
