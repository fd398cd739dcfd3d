#include "tools/kestrin/ReaderSession.h"

#include <KestrinBLESDK/platform/NSString.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "tools/kestrin/Console.h"
#include "tools/kestrin/Seconds.h"
#include "tools/kestrin/SessionReport.h"

namespace kestrin::app {
namespace {

constexpr Time kLongestGoodbye = std::chrono::seconds(10);

}  // namespace

/// The manager holds its delegates weakly and asks each by itself, so this is what it is given.
class ReaderSession::Delegate final : public KestrinBLEProtocols,
                                      public RcpReceiver,
                                      public std::enable_shared_from_this<Delegate> {
 public:
  explicit Delegate(ReaderSession& session) : session_(session) {}
  void scanningBleDeive(const std::shared_ptr<CBPeripheral>& peripheral) noexcept override {
    session_.takeReader(peripheral);
  }
  void plugChangedStatus(bool plugged) noexcept override { session_.takePlugReport(plugged); }
  void dispatchRcpFrmReader(const std::optional<NSData>& frame) noexcept override {
    session_.takeFrame(frame);
  }
  /// Connects again in a later turn: the report of a lost link is no place to ask for the next.
  void connectLater(RunLoop& loop) {
    loop.post([weak = weak_from_this()] {
      const auto self = weak.lock();
      if (self && !self->session_.closing_ && !self->session_.manager_->open()) {
        self->session_.connect();
      }
    });
  }

 private:
  ReaderSession& session_;
};

ReaderSession::ReaderSession(RadioEnvironment& environment, Console& console, SessionReport& report,
                             std::string wantedName)
    : environment_(environment),
      console_(console),
      report_(report),
      wantedName_(std::move(wantedName)),
      manager_(std::make_unique<RecordedManager>(environment.platform(), environment.recorder())),
      delegate_(std::make_shared<Delegate>(*this)),
      watch_(std::make_unique<RadioWatch>(
          environment.unrecordedRadio(), [this](CBManagerState state) { takeRadioState(state); })) {
  manager_->setDelegate(delegate_);
  manager_->setRcpReceiverDelegate(delegate_);
}

ReaderSession::~ReaderSession() = default;

void ReaderSession::takeRadioState(CBManagerState state) {
  // Until there is a link: from then on its loss says what matters.
  if (state == CBManagerState::unknown || state == CBManagerState::poweredOn) return;
  if (!watch_->unusable() && !plugged_ && !closing_) {
    console_.note(watch_->description() + "; waiting for it");
  }
}

void ReaderSession::takeReader(const std::shared_ptr<CBPeripheral>& peripheral) {
  const std::string name = peripheral->name().value_or("");
  if (std::find(namesSeen_.begin(), namesSeen_.end(), name) == namesSeen_.end()) {
    namesSeen_.push_back(name);
  }
  if (reader_ || !containsString(name, wantedName_)) return;
  reader_ = peripheral;
  readerName_ = printable(name);
  report_.reader(name, peripheral->identifier());
  connect();
}

void ReaderSession::connect() {
  linkWanted_ = true;
  manager_->connectBLE(reader_);
}

void ReaderSession::takePlugReport(bool plugged) {
  // `close` reports also when there was nothing to unplug.
  if (reader_) report_.plugged(plugged);
  plugged_ = plugged;
  if (plugged) return;
  // The report that `close` makes by itself comes before the link's end.
  if (!inClose_) linkWanted_ = false;
  if (!closing_) delegate_->connectLater(environment_.loop());
}

void ReaderSession::takeFrame(const std::optional<NSData>& frame) { report_.frame(frame); }

bool ReaderSession::ending() const {
  return environment_.interrupted() || console_.outputError().has_value();
}

bool ReaderSession::find(Time timeout) {
  MainRunLoop& loop = environment_.loop();
  manager_->scanBLE();
  loop.runUntil(loop.now() + timeout, [this] { return reader_ || watch_->unusable() || ending(); });
  if (reader_ || ending()) return reader_ != nullptr;
  if (watch_->unusable()) {
    console_.note("can not search for '" + printable(wantedName_) + "': " + watch_->description());
  } else {
    tellNotFound(timeout);
  }
  return false;
}

bool ReaderSession::plugIn(Time timeout) {
  if (!find(timeout)) return false;
  MainRunLoop& loop = environment_.loop();
  loop.runUntil(loop.now() + timeout, [this] { return plugged_ || ending(); });
  if (!plugged_ && !ending()) tellNotPlugged(timeout);
  return plugged_ && !ending();
}

void ReaderSession::tellNotFound(Time timeout) {
  std::string text = "no reader whose name contains '" + printable(wantedName_) +
                     "' was found within " + secondsText(timeout) + " s; ";
  if (watch_->state() != CBManagerState::poweredOn) {
    text += watch_->description();
  } else if (namesSeen_.empty()) {
    text += "no reader at all is in range";
  } else {
    text += "in range:";
    for (const std::string& name : namesSeen_) {
      text += (&name == &namesSeen_.front() ? " '" : ", '") + printable(name) + "'";
    }
  }
  console_.note(text);
}

void ReaderSession::tellNotPlugged(Time timeout) {
  const std::string after = " after " + secondsText(timeout) + " s";
  if (watch_->state() != CBManagerState::poweredOn) {
    console_.note(readerName_ + ": no link" + after + "; " + watch_->description());
  } else if (manager_->open()) {
    console_.note(readerName_ + ": the link is up, but the reader is not plugged in" + after +
                  "; --log shows what was found on it");
  } else {
    console_.note(readerName_ + ": no link" + after);
  }
}

bool ReaderSession::send(const NSData& frame) {
  if (!manager_->send(frame)) return false;
  report_.sent(frame);
  return true;
}

void ReaderSession::catchUp() { environment_.loop().runFor(Time::zero()); }

void ReaderSession::listen(std::optional<Time> duration, bool untilUnplugged) {
  MainRunLoop& loop = environment_.loop();
  const auto done = [&] { return ending() || (untilUnplugged && !plugged_); };
  if (duration) {
    loop.runUntil(loop.now() + *duration, done);
    return;
  }
  // A loop has no end of its own here; a day is as good a deadline as any.
  while (!done()) loop.runUntil(loop.now() + std::chrono::hours(24), done);
}

bool ReaderSession::close() {
  closing_ = true;
  MainRunLoop& loop = environment_.loop();
  inClose_ = true;
  manager_->close();
  inClose_ = false;
  const auto down = [this] { return !manager_->open() && !linkWanted_; };
  loop.runUntil(loop.now() + kLongestGoodbye, down);
  if (!manager_->open()) return true;
  console_.note(readerName_ + ": the link is still up " + secondsText(kLongestGoodbye) +
                " s after close");
  return false;
}

}  // namespace kestrin::app
