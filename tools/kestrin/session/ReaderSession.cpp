#include "tools/kestrin/session/ReaderSession.h"

#include <chrono>
#include <utility>

#include "tools/kestrin/console/Console.h"
#include "tools/kestrin/session/SessionReport.h"
#include "tools/kestrin/text/SafeText.h"
#include "tools/kestrin/text/Seconds.h"

namespace kestrin::app {
namespace {

constexpr Time kLongestGoodbye = std::chrono::seconds(10);
// After the first reader that is meant, others that are meant as well get this long to be seen: to
// work whichever was heard first would sooner or later be to work the wrong one.
constexpr Time kSettling = std::chrono::milliseconds(500);

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
      if (self) self->session_.connect();
    });
  }
  void settleLater(RunLoop& loop) {
    loop.arm(kSettling, [weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->session_.settle();
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
      choice_(std::move(wantedName)),
      manager_(std::make_unique<RecordedManager>(environment.platform())),
      delegate_(std::make_shared<Delegate>(*this)),
      watch_(std::make_unique<RadioWatch>(
          environment.unrecordedRadio(), [this](CBManagerState state) { takeRadioState(state); })) {
  manager_->setDelegate(delegate_);
  manager_->setRcpReceiverDelegate(delegate_);
  environment_.setBackground(this);
}

ReaderSession::~ReaderSession() { environment_.setBackground(nullptr); }

void ReaderSession::takeRadioState(CBManagerState state) {
  // Until there is a link: from then on its loss says what matters.
  if (state == CBManagerState::unknown || state == CBManagerState::poweredOn) return;
  if (!watch_->unusable() && !plugged_ && !closing_) {
    console_.note(watch_->description() + "; waiting for it");
  }
}

void ReaderSession::takeReader(const std::shared_ptr<CBPeripheral>& peripheral) {
  choice_.take(peripheral);
  report_.seen(choice_.seen());
  if (reader_ || ambiguous_ || choice_.meant().empty()) return;
  if (choice_.isIdentified()) {
    work(choice_.meant().front());
  } else if (choosing_) {
    report_.choose(choice_.meant());
  } else if (!settling_) {
    settling_ = true;
    delegate_->settleLater(environment_.loop());
  }
}

void ReaderSession::settle() {
  settling_ = false;
  if (reader_ || closing_) return;
  const std::vector<SeenReader> meant = choice_.meant();
  if (meant.size() == 1) {
    work(meant.front());
  } else {
    choosing_ = report_.choose(meant);
    ambiguous_ = !choosing_;
  }
}

void ReaderSession::work(const SeenReader& reader) {
  if (reader_) return;
  reader_ = reader.peripheral;
  readerName_ = printable(reader.name);
  report_.reader(reader.name, reader.identifier);
  connect();
}

void ReaderSession::connect() {
  if (closing_ || away_ || manager_->open()) return;
  linkWanted_ = true;
  manager_->connectBLE(reader_);
}

void ReaderSession::leave() {
  away_ = true;
  closedSinceLeaving_ = false;
}

void ReaderSession::comeBack() {
  away_ = false;
  if (reader_) {
    connect();
  } else if (searching_ && !closing_) {
    manager_->scanBLE();
  }
}

void ReaderSession::takePlugReport(bool plugged) {
  // `close` reports also when there was nothing to unplug.
  if (reader_) report_.plugged(plugged);
  plugged_ = plugged;
  if (plugged) return;
  closedSinceLeaving_ = true;
  // The report that `close` makes by itself comes before the link's end.
  if (!inClose_) linkWanted_ = false;
  if (reader_) delegate_->connectLater(environment_.loop());
}

void ReaderSession::takeFrame(const std::optional<NSData>& frame) { report_.frame(frame); }

std::string ReaderSession::radioTrouble() const {
  return watch_->state() == CBManagerState::poweredOn ? "" : watch_->description();
}

bool ReaderSession::ending() const {
  return environment_.interrupted() || console_.outputError().has_value();
}

/// Lets events happen until `done`, for at most `timeout`, in which the time that the process
/// spends away does not count.
bool ReaderSession::wait(Time timeout, const std::function<bool()>& done) {
  MainRunLoop& loop = environment_.loop();
  const Time begin = loop.now() - environment_.timeAway();
  const auto deadline = [&] { return timeAfter(begin + environment_.timeAway(), timeout); };
  const auto ended = [&] {
    return !environment_.leaving() && (done() || loop.now() >= deadline());
  };
  while (!ended() && !ending()) {
    // What is under way to a stop has a limit of its own.
    const Time next = environment_.leaving() ? timeAfter(loop.now(), kLongestGoodbye) : deadline();
    loop.runUntil(next, [&] { return ended() || ending(); });
  }
  return done();
}

bool ReaderSession::find(Time timeout) {
  searching_ = true;
  manager_->scanBLE();
  const auto found = [this] { return reader_ || ambiguous_ || watch_->unusable(); };
  wait(timeout, [&] { return found() || choosing_; });
  // A person takes as long as a person takes.
  while (choosing_ && !found() && !ending()) wait(std::chrono::hours(24), found);
  searching_ = false;
  if (reader_ || ending()) return reader_ != nullptr;
  if (ambiguous_) {
    tellAmbiguous();
  } else if (watch_->unusable()) {
    console_.note("can not search for " + wantedInWords() + ": " + watch_->description());
  } else {
    tellNotFound(timeout);
  }
  return false;
}

bool ReaderSession::plugIn(Time timeout) {
  if (!find(timeout)) return false;
  wait(timeout, [this] { return plugged_; });
  if (!plugged_ && !ending()) tellNotPlugged(timeout);
  return plugged_ && !ending();
}

std::string ReaderSession::wantedInWords() const {
  return choice_.wanted().empty() ? "a reader" : "'" + printable(choice_.wanted()) + "'";
}

void ReaderSession::tellAmbiguous() {
  const std::string wanted = choice_.wanted().empty() ? "several readers are in range"
                                                      : wantedInWords() + " fits several readers";
  console_.note(wanted + ": " + listOf(choice_.meant()) +
                "; give the whole name of one, or its identifier");
}

void ReaderSession::tellNotFound(Time timeout) {
  const std::string which =
      choice_.wanted().empty() ? "" : " whose name contains " + wantedInWords();
  std::string text = "no reader" + which + " was found within " + secondsText(timeout) + " s; ";
  if (watch_->state() != CBManagerState::poweredOn) {
    text += watch_->description();
  } else if (choice_.seen().empty()) {
    text += "no reader at all is in range";
  } else {
    text += "in range:";
    for (const SeenReader& reader : choice_.seen()) {
      text += (&reader == &choice_.seen().front() ? " '" : ", '") + printable(reader.name) + "'";
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

void ReaderSession::catchUp() {
  environment_.loop().runFor(Time::zero());
  if (environment_.leaving()) wait(kLongestGoodbye, [] { return true; });
}

void ReaderSession::listen(std::optional<Time> duration, bool untilUnplugged) {
  const auto done = [&] { return untilUnplugged && !plugged_; };
  // A loop has no end of its own here; a day is as good a deadline as any.
  while (!wait(duration.value_or(std::chrono::hours(24)), done) && !duration && !ending()) {
  }
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
