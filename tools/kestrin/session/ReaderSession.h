// One reader, from the search for it to the end of its link: what `monitor` and `send` share.
// Reports the reader found and each plug report and frame.
//
// Threads: the thread that turns the environment's loop.
// Lifetime: drop it before its environment and its report. `close` before the drop, or the link's
// end is not waited for. Errors: told on the console.
#pragma once

#include <KestrinBLESDK/KestrinBleMgr.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "KestrinBLESDK/recording/RecordedManager.h"
#include "tools/kestrin/radio/RadioEnvironment.h"
#include "tools/kestrin/radio/RadioWatch.h"
#include "tools/kestrin/session/ReaderChoice.h"

namespace kestrin::app {

class Console;
class SessionReport;

class ReaderSession final : private Background {
 public:
  ReaderSession(RadioEnvironment& environment, Console& console, SessionReport& report,
                std::string wantedName);
  ~ReaderSession() override;
  ReaderSession(const ReaderSession&) = delete;
  ReaderSession& operator=(const ReaderSession&) = delete;

  /// Searches for the reader that is meant and brings its link up, each for at most `timeout`.
  /// False when that failed, which has been told, or was interrupted.
  bool plugIn(Time timeout);
  /// Takes one of the readers that `SessionReport::choose` was told of.
  void work(const SeenReader& reader);
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
  /// Whether there is a link, plugged in or not yet.
  [[nodiscard]] bool linked() const noexcept { return manager_->open(); }
  /// What is the matter with the radio; empty when it is on.
  [[nodiscard]] std::string radioTrouble() const;
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
  void settle();
  void leave() override;
  [[nodiscard]] bool isDown() const override { return closedSinceLeaving_ && !manager_->open(); }
  void comeBack() override;
  bool wait(Time timeout, const std::function<bool()>& done);
  bool find(Time timeout);
  [[nodiscard]] std::string wantedInWords() const;
  void tellAmbiguous();
  void tellNotFound(Time timeout);
  void tellNotPlugged(Time timeout);

  RadioEnvironment& environment_;
  Console& console_;
  SessionReport& report_;
  ReaderChoice choice_;
  const std::unique_ptr<RecordedManager> manager_;
  const std::shared_ptr<Delegate> delegate_;
  const std::unique_ptr<RadioWatch> watch_;
  std::shared_ptr<CBPeripheral> reader_;
  std::string readerName_;
  bool plugged_ = false;
  bool linkWanted_ = false;  // From each connection request to the report of its end.
  bool searching_ = false;
  bool settling_ = false;
  bool choosing_ = false;   // Somebody picks one of several readers.
  bool ambiguous_ = false;  // Nobody does.
  bool away_ = false;
  bool closedSinceLeaving_ = false;
  bool closing_ = false;
  bool inClose_ = false;
};

}  // namespace kestrin::app
