// Runs `kestrin` in a terminal of the test's own, as a job of a shell would run: it can be stopped
// from the terminal and continued.
//
// Threads: one at a time.
// Lifetime: the program is ended by the destructor if it has not ended.
// Errors: what cannot be set up fails the test; what does not come within a minute is answered
// with false.
#pragma once

#include <sys/types.h>
#include <termios.h>

#include <functional>
#include <string>
#include <vector>

#include "kestrin/TerminalEmulator.h"

namespace kestrin::app::test {

struct PtyOptions {
  /// "NAME=value"; TERM is xterm and NO_COLOR not set unless they are among them.
  std::vector<std::string> environment{};
  bool inForeground = true;
  std::size_t columns = 80;
  std::size_t rows = 24;
};

class PtyProgram {
 public:
  explicit PtyProgram(const std::vector<std::string>& arguments, const PtyOptions& options = {});
  ~PtyProgram();
  PtyProgram(const PtyProgram&) = delete;
  PtyProgram& operator=(const PtyProgram&) = delete;

  /// Reads what it shows until `isThere`.
  bool waitFor(const std::function<bool(const TerminalEmulator&)>& isThere);
  bool waitFor(const std::string& text) {
    return waitFor([&](const TerminalEmulator& screen) { return screen.shows(text); });
  }
  void type(const std::string& keys) const;
  void resize(std::size_t columns, std::size_t rows);
  void signal(int number) const;
  bool waitUntilStopped();
  /// As `fg` does.
  void goOn();
  /// Waits for the end. The exit status, 128 and the signal's number for one that a signal ended;
  /// -1 if there is no end.
  int finish();

  [[nodiscard]] const TerminalEmulator& screen() const { return emulator_; }
  /// Whether the terminal is as it was before the program, its modes and what was written to it.
  [[nodiscard]] bool isTerminalRight() const;

 private:
  struct News {
    int status;
  };
  /// Reads once from the terminal and from the job's keeper; false when nothing comes.
  bool readSome();
  [[noreturn]] void keepJob(const std::string& terminal, char* const* arguments,
                            char* const* environment, bool inForeground);
  [[nodiscard]] termios modes() const;

  int master_ = -1;
  int news_ = -1;
  int orders_ = -1;
  pid_t keeper_ = -1;
  pid_t job_ = -1;
  termios before_{};
  bool stopped_ = false;
  int ended_ = -1;
  TerminalEmulator emulator_;
};

}  // namespace kestrin::app::test
