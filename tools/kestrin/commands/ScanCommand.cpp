// `kestrin scan`: the readers in range.
#include <KestrinBLESDK/KestrinBleMgr.h>

#include <chrono>
#include <memory>
#include <string>

#include "KestrinBLESDK/recording/RecordedManager.h"
#include "tools/kestrin/commands/Commands.h"
#include "tools/kestrin/console/Console.h"
#include "tools/kestrin/radio/RadioEnvironment.h"
#include "tools/kestrin/session/JsonReport.h"
#include "tools/kestrin/text/Frames.h"
#include "tools/kestrin/text/SafeText.h"
#include "tools/kestrin/text/Seconds.h"

namespace kestrin::app {
namespace {

constexpr Time kLiveInterval = std::chrono::milliseconds(250);

class ReaderLines final : public KestrinBLEProtocols {
 public:
  /// `json` is null for plain lines.
  ReaderLines(Console& console, JsonReport* json) : console_(console), json_(json) {}
  void scanningBleDeive(const std::shared_ptr<CBPeripheral>& peripheral) noexcept override {
    ++count_;
    const std::string name = peripheral->name().value_or("");
    if (json_ != nullptr) {
      json_->reader(name, peripheral->identifier());
    } else {
      console_.line(printable(name) + '\t' + printable(peripheral->identifier()));
    }
  }
  [[nodiscard]] std::size_t count() const { return count_; }

 private:
  Console& console_;
  JsonReport* const json_;
  std::size_t count_ = 0;
};

/// Shows from time to time that the scan is on.
class LiveLine : public std::enable_shared_from_this<LiveLine> {
 public:
  LiveLine(RadioEnvironment& environment, Console& console, const RadioWatch& watch,
           std::shared_ptr<ReaderLines> readers)
      : environment_(environment),
        console_(console),
        watch_(watch),
        readers_(std::move(readers)),
        begin_(environment.loop().now()) {}

  void show() {
    if (!console_.hasLiveLine()) return;
    const bool on = watch_.state() == CBManagerState::poweredOn;
    console_.live(
        (on ? "Scanning, " : "Waiting for the radio, ") +
        secondsText(std::chrono::floor<std::chrono::seconds>(environment_.loop().now() - begin_)) +
        " s, " + countOf(readers_->count(), "reader") + " (Ctrl-C ends)");
    environment_.loop().arm(kLiveInterval, [weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->show();
    });
  }

 private:
  RadioEnvironment& environment_;
  Console& console_;
  const RadioWatch& watch_;
  const std::shared_ptr<ReaderLines> readers_;
  const Time begin_;
};

/// Scans again when the process comes back.
class ScanAgain final : public Background {
 public:
  ScanAgain(RadioEnvironment& environment, RecordedManager& manager)
      : environment_(environment), manager_(manager) {
    environment_.setBackground(this);
  }
  ~ScanAgain() override { environment_.setBackground(nullptr); }
  ScanAgain(const ScanAgain&) = delete;
  ScanAgain& operator=(const ScanAgain&) = delete;
  void leave() override {}
  [[nodiscard]] bool isDown() const override { return true; }
  void comeBack() override { manager_.scanBLE(); }

 private:
  RadioEnvironment& environment_;
  RecordedManager& manager_;
};

void scanUntilEnd(const ScanRequest& request, RadioEnvironment& environment, Console& console,
                  const RadioWatch& watch) {
  MainRunLoop& loop = environment.loop();
  const auto done = [&] {
    return watch.unusable() || environment.interrupted() || console.outputError();
  };
  if (request.duration) {
    loop.runUntil(loop.now() + timeFromSeconds(*request.duration), done);
    return;
  }
  // A loop has no end of its own here; a day is as good a deadline as any.
  while (!done()) loop.runUntil(loop.now() + std::chrono::hours(24), done);
}

}  // namespace

int runScan(const ScanRequest& request, RadioEnvironment& environment, Console& console) {
  bool everOn = false;
  JsonReport json(console, environment.loop());
  const auto watched = environment.radioWatch();
  const RadioWatch& watch = *watched;
  const auto token = watched->listen([&](CBManagerState state) {
    everOn = everOn || state == CBManagerState::poweredOn;
    if (request.json) json.state(state);
    // A state that ends the scan is told with the scan's failure.
    if (state != CBManagerState::unknown && !watch.unusable()) {
      console.note(printable(watch.description()));
    }
  });
  RecordedManager manager(environment.platform());
  const auto readers = std::make_shared<ReaderLines>(console, request.json ? &json : nullptr);
  manager.setDelegate(readers);
  const ScanAgain scanAgain(environment, manager);
  manager.scanBLE();
  const auto liveLine = std::make_shared<LiveLine>(environment, console, watch, readers);
  liveLine->show();
  scanUntilEnd(request, environment, console, watch);
  manager.stopSacnBLE();
  console.flush();
  if (watch.unusable() || (!everOn && !environment.interrupted())) {
    console.note("cannot scan: " + printable(watch.description()));
    return kFailure;
  }
  return finishOutput(console);
}

}  // namespace kestrin::app
