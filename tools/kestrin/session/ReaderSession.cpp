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
// A loop has no end of its own here; a day is as good a deadline as any.
constexpr Time kADay = std::chrono::hours(24);

}  // namespace

ReaderSession::ReaderSession(RadioEnvironment& environment, Console& console, SessionReport& report,
                             std::string wantedName)
    : environment_(environment),
      console_(console),
      report_(report),
      wanted_(std::move(wantedName)),
      watch_(environment.radioWatch()) {
  environment_.setBackground(this);
}

ReaderSession::~ReaderSession() { environment_.setBackground(nullptr); }

ReaderHandlers ReaderSession::handlers() {
  ReaderHandlers handlers;
  handlers.onPhase = [this](Reader&, ReaderPhase phase) { takePhase(phase); };
  handlers.onFrame = [this](Reader&, const RcpFrame& frame) {
    report_.frame(std::optional<NSData>(std::in_place, frame.bytes));
  };
  handlers.onValue = [this](Reader&, const NSData& value) { report_.frame(value); };
  handlers.onTrouble = [this](Reader&, const NSError& trouble) { takeTrouble(trouble); };
  handlers.onSeen = [this](Reader& reader) { report_.seen(reader.seen()); };
  return handlers;
}

bool ReaderSession::plugIn(Time timeout) {
  timeout_ = timeout;
  ReaderOptions options;
  options.reader = wanted_;
  options.findLimit = timeout;
  options.plugInLimit = timeout;
  options.watch = watch_;
  reader_ = Reader::create(environment_.platform(), std::move(options), handlers());
  const auto done = [this] {
    return attempt_ == Attempt::succeeded || attempt_ == Attempt::failed;
  };
  // The reader has its limits; a person who chooses takes as long as a person takes.
  while (!wait(kADay, done) && !ending()) {
  }
  return plugged() && !ending();
}

void ReaderSession::takePhase(ReaderPhase phase) {
  const ReaderPhase last = std::exchange(last_, phase);
  const bool wasLinked = last == ReaderPhase::linkingUp || last == ReaderPhase::pluggedIn;
  if (phase == ReaderPhase::connecting && last == ReaderPhase::searching) {
    if (attempt_ == Attempt::choosing) attempt_ = Attempt::running;
    report_.reader(reader_->name(), reader_->identifier());
  } else if (phase == ReaderPhase::pluggedIn) {
    if (attempt_ != Attempt::failed) attempt_ = Attempt::succeeded;
    report_.plugged(true);
  } else if (phase == ReaderPhase::lost || phase == ReaderPhase::away ||
             (phase == ReaderPhase::radioOff && wasLinked)) {
    tellUnplugged();
  }
}

void ReaderSession::tellUnplugged() {
  if (isFound()) report_.plugged(false);
}

void ReaderSession::takeTrouble(const NSError& trouble) {
  switch (static_cast<ReaderError>(trouble.code)) {
    case ReaderError::radioOff:
      // Until it is plugged in: from then on the link's loss says what matters.
      if (attempt_ == Attempt::succeeded) break;
      console_.note(printable(trouble.text) + "; waiting for it");
      break;
    case ReaderError::radioUnusable:
      if (!isFound()) {
        fail("cannot search for " +
             (wanted_.empty() ? "a reader" : "'" + printable(wanted_) + "'") + ": " +
             printable(trouble.text));
      }
      break;
    case ReaderError::notFound:
      if (attempt_ != Attempt::choosing) fail(trouble.text);
      break;
    case ReaderError::notPluggedIn:
      if (attempt_ == Attempt::running) tellNotPlugged();
      break;
    default:
      takeRefusal(trouble);
      break;
  }
}

void ReaderSession::takeRefusal(const NSError& trouble) {
  if (static_cast<ReaderError>(trouble.code) == ReaderError::ambiguous &&
      report_.choose(reader_->candidates())) {
    attempt_ = Attempt::choosing;
  } else {
    fail(trouble.text);
  }
}

void ReaderSession::fail(const std::string& text) {
  console_.note(text);
  attempt_ = Attempt::failed;
}

void ReaderSession::tellNotPlugged() {
  const std::string after = " after " + secondsText(timeout_) + " s";
  if (const std::string trouble = radioTrouble(); !trouble.empty()) {
    fail(readerName() + ": no link" + after + "; " + trouble);
  } else if (linked()) {
    fail(readerName() + ": the link is up, but the reader is not plugged in" + after +
         "; --log shows what was found on it");
  } else {
    fail(readerName() + ": no link" + after);
  }
}

void ReaderSession::work(const SeenReader& reader) { reader_->choose(reader.identifier); }

void ReaderSession::leave() {
  if (!reader_) return;
  // The end of the link is reported besides the request for it, where there is one.
  reader_->leave([this, wasThere = reader_->hasLink()] {
    if (wasThere) tellUnplugged();
  });
}

bool ReaderSession::isDown() const { return !reader_ || (!reader_->hasLink() && !linked()); }

void ReaderSession::comeBack() {
  if (reader_) reader_->comeBack();
}

std::string ReaderSession::readerName() const {
  return reader_ ? printable(reader_->name()) : std::string();
}

std::string ReaderSession::radioTrouble() const {
  return watch_->state() == CBManagerState::poweredOn ? "" : printable(watch_->description());
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

bool ReaderSession::send(const NSData& frame) {
  std::optional<bool> sent;
  reader_->send(frame, [&](const std::optional<NSError>& error) { sent = !error; });
  MainRunLoop& loop = environment_.loop();
  // It ends by itself: with the last slice, or with the link.
  while (!sent) loop.runUntil(timeAfter(loop.now(), kADay), [&] { return sent.has_value(); });
  if (*sent) report_.sent(frame);
  return *sent;
}

void ReaderSession::catchUp() {
  environment_.loop().runFor(Time::zero());
  if (environment_.leaving()) wait(kLongestGoodbye, [] { return true; });
}

void ReaderSession::listen(std::optional<Time> duration, bool untilUnplugged) {
  const auto done = [&] { return untilUnplugged && !plugged(); };
  while (!wait(duration.value_or(kADay), done) && !duration && !ending()) {
  }
}

bool ReaderSession::close() {
  if (!reader_) return true;
  const bool wasThere = reader_->hasLink();
  const bool wasUp = linked();
  bool down = false;
  tellUnplugged();
  reader_->close([&, this] {
    down = true;
    if (wasThere) tellUnplugged();
  });
  MainRunLoop& loop = environment_.loop();
  loop.runUntil(loop.now() + kLongestGoodbye, [&] { return down; });
  const std::string name = readerName();
  const bool isStuck = !down && wasUp;
  if (isStuck) {
    console_.note(name + ": the link is still up " + secondsText(kLongestGoodbye) +
                  " s after close");
  }
  reader_.reset();
  return !isStuck;
}

}  // namespace kestrin::app
