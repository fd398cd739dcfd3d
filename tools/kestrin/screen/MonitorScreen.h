// The live screen of `kestrin monitor`: keeps what it shows, draws it when something has changed,
// and takes keys.
//
// Threads: the thread that turns the environment's loop.
// Lifetime: drop it before its terminal and its environment. It takes the terminal when it is made
// and gives it back with the drop.
// Errors: none.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tools/kestrin/screen/MonitorView.h"
#include "tools/kestrin/screen/TerminalKeys.h"
#include "tools/kestrin/session/SessionReport.h"

namespace kestrin::app {

class RadioEnvironment;
class ReaderSession;
class ScreenLog;
class TerminalScreen;

class MonitorScreen final : public SessionReport {
 public:
  /// At most ten pictures a second; and twice a second a look at what changes by itself.
  static constexpr Time kPause = std::chrono::milliseconds(100);
  static constexpr Time kLook = std::chrono::milliseconds(500);

  MonitorScreen(TerminalScreen& terminal, RadioEnvironment& environment, std::string wanted,
                std::shared_ptr<ScreenLog> log);
  ~MonitorScreen() override;
  MonitorScreen(const MonitorScreen&) = delete;
  MonitorScreen& operator=(const MonitorScreen&) = delete;

  /// The session that this reports on; null when it ends.
  void setSession(ReaderSession* session) { session_ = session; }
  /// The link is being closed.
  void closing();
  /// A line for a person, safe for a terminal, among those of the log.
  void note(const std::string& text);
  void key(char pressed);

  void reader(const std::string& name, const std::string& identifier) override;
  void plugged(bool isPlugged) override;
  void frame(const std::optional<NSData>& frame) override;
  void sent(const NSData& /*frame*/) override {}
  void seen(const std::vector<SeenReader>& readers) override;
  bool choose(const std::vector<SeenReader>& readers) override;

 private:
  [[nodiscard]] LinkState state() const;
  [[nodiscard]] bool isPlainKey(char pressed);
  void update();
  void addLine(std::string line);
  void changed();
  void look();
  void draw();

  TerminalScreen& terminal_;
  RadioEnvironment& environment_;
  const std::shared_ptr<ScreenLog> log_;
  ReaderSession* session_ = nullptr;
  MonitorView view_;
  ArrivalRate rate_;
  std::vector<SeenReader> choices_;
  const Time begin_;
  Time lastDrawing_;
  bool isDrawingArmed_ = false;
  bool isClosing_ = false;
  enum class Escape { none, begun, sequence, single } escape_ = Escape::none;
  /// What is armed on the loop is of no use without this.
  const std::shared_ptr<char> alive_ = std::make_shared<char>();
  std::unique_ptr<TerminalKeys> keys_;
};

}  // namespace kestrin::app
