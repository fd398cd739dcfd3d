// One reader, from the search for it to the end of its link: what `monitor` and `send` share. It
// puts `kestrin::Reader` on the console and on a report.
//
// Threads: the thread that turns the environment's loop.
// Lifetime: drop it before its environment and its report. `close` before the drop, or the link's
// end is not waited for. Errors: told on the console.
#pragma once

#include <KestrinBLESDK/Reader.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "tools/kestrin/radio/RadioEnvironment.h"

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
  /// Sends one frame and returns when it has left; false when it was refused or the link was lost.
  bool send(const NSData& frame);
  /// Lets events happen for `duration`, or without end. Ends early when interrupted, when the
  /// output cannot be written, and with `untilUnplugged` when the reader is unplugged.
  void listen(std::optional<Time> duration, bool untilUnplugged);
  /// Lets happen everything that is due by now.
  void catchUp();
  /// Closes and waits for the link to be down; false when that took too long, which has been told.
  bool close();

  [[nodiscard]] bool plugged() const noexcept { return isIn(ReaderPhase::pluggedIn); }
  /// Whether there is a link, plugged in or not yet.
  [[nodiscard]] bool linked() const noexcept { return plugged() || isIn(ReaderPhase::linkingUp); }
  /// What is the matter with the radio; empty when it is on.
  [[nodiscard]] std::string radioTrouble() const;
  /// Whether the command shall come to its end.
  [[nodiscard]] bool ending() const;
  /// The reader's name as it may be printed; empty before one is found.
  [[nodiscard]] std::string readerName() const;

 private:
  /// What has become of the attempt to plug in.
  enum class Attempt { running, choosing, succeeded, failed };

  [[nodiscard]] bool isIn(ReaderPhase phase) const noexcept {
    return reader_ && reader_->phase() == phase;
  }
  [[nodiscard]] bool isFound() const { return reader_ && !reader_->identifier().empty(); }
  ReaderHandlers handlers();
  void takePhase(ReaderPhase phase);
  void takeTrouble(const NSError& trouble);
  void takeRefusal(const NSError& trouble);
  void fail(const std::string& text);
  void tellUnplugged();
  void tellNotPlugged();
  void leave() override;
  [[nodiscard]] bool isDown() const override;
  void comeBack() override;
  bool wait(Time timeout, const std::function<bool()>& done);

  RadioEnvironment& environment_;
  Console& console_;
  SessionReport& report_;
  const std::string wanted_;
  const std::shared_ptr<RadioWatch> watch_;
  Time timeout_{};
  ReaderPhase last_ = ReaderPhase::searching;
  Attempt attempt_ = Attempt::running;
  std::unique_ptr<Reader> reader_;
};

}  // namespace kestrin::app
