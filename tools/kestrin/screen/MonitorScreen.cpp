#include "tools/kestrin/screen/MonitorScreen.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

#include "tools/kestrin/radio/RadioEnvironment.h"
#include "tools/kestrin/screen/ScreenLog.h"
#include "tools/kestrin/screen/TerminalScreen.h"
#include "tools/kestrin/session/ReaderSession.h"
#include "tools/kestrin/text/SafeText.h"

namespace kestrin::app {
namespace {

constexpr std::size_t kMostFrames = 200;
constexpr std::size_t kMostKeys = 9;
constexpr char kEscape = '\x1b';
constexpr char kRedraw = '\x0c';  // Ctrl-L, as everywhere.

}  // namespace

MonitorScreen::MonitorScreen(TerminalScreen& terminal, RadioEnvironment& environment,
                             std::string wanted, std::shared_ptr<ScreenLog> log)
    : terminal_(terminal),
      environment_(environment),
      log_(std::move(log)),
      begin_(environment.loop().now()),
      lastDrawing_(begin_ - kPause) {
  view_.wanted = std::move(wanted);
  terminal_.enter();
  if (::isatty(terminal_.input()) == 1) {
    keys_ = std::make_unique<TerminalKeys>(terminal_.input(), environment_.loop(),
                                           [this](char pressed) { key(pressed); });
  }
  look();
}

MonitorScreen::~MonitorScreen() {
  keys_.reset();
  terminal_.leave();
}

void MonitorScreen::closing() {
  isClosing_ = true;
  draw();
}

void MonitorScreen::addLine(std::string line) {
  view_.log.push_back(std::move(line));
  if (view_.log.size() > ScreenLog::kMostLines) view_.log.pop_front();
}

void MonitorScreen::note(const std::string& text) {
  addLine(text);
  changed();
}

bool MonitorScreen::isPlainKey(char pressed) {
  // Cursor keys and the like come as several characters, of which none is meant as itself.
  const bool isFinal = pressed >= '@' && pressed <= '~';
  switch (std::exchange(escape_, Escape::none)) {
    case Escape::none:
      if (pressed == kEscape) escape_ = Escape::begun;
      return pressed != kEscape;
    case Escape::begun:
      if (pressed == '[') escape_ = Escape::sequence;
      if (pressed == 'O') escape_ = Escape::single;
      return false;
    case Escape::sequence:
      if (!isFinal) escape_ = Escape::sequence;
      return false;
    case Escape::single:
      break;
  }
  return false;
}

void MonitorScreen::key(char pressed) {
  if (!isPlainKey(pressed)) return;
  if (pressed == 'q' || pressed == 'Q') environment_.interrupt();
  if (pressed == kRedraw) {
    terminal_.forget();
    changed();
  }
  const auto chosen = static_cast<std::size_t>(pressed - '1');
  if (pressed < '1' || chosen >= std::min(choices_.size(), kMostKeys) || session_ == nullptr)
    return;
  const SeenReader reader = choices_[chosen];
  session_->work(reader);
}

void MonitorScreen::reader(const std::string& name, const std::string& identifier) {
  view_.reader = name;
  view_.identifier = identifier;
  choices_.clear();
  for (ShownReader& shown : view_.readers) {
    shown.isWorked = shown.identifier == identifier;
    shown.key = 0;
  }
  changed();
}

void MonitorScreen::plugged(bool isPlugged) {
  const bool wasPlugged = view_.state == LinkState::plugged;
  if (isPlugged) ++view_.linkUps;
  // A link that is closed on purpose is not lost; the state is then another one already.
  if (!isPlugged && wasPlugged && !environment_.leaving()) ++view_.losses;
  view_.state = isPlugged ? LinkState::plugged : LinkState::lost;
  changed();
}

void MonitorScreen::frame(const std::optional<NSData>& frame) {
  if (!frame) return;
  const auto bytes = frame->span();
  const Time now = environment_.loop().now();
  rate_.add(now, bytes.size());
  ++view_.frameCount;
  view_.byteCount += bytes.size();
  view_.frames.push_back({now - begin_, {bytes.begin(), bytes.end()}});
  if (view_.frames.size() > kMostFrames) view_.frames.pop_front();
  changed();
}

void MonitorScreen::seen(const std::vector<SeenReader>& readers) {
  view_.readers.clear();
  for (const SeenReader& reader : readers) {
    const auto choice = std::find_if(
        choices_.begin(), choices_.end(),
        [&](const SeenReader& candidate) { return candidate.identifier == reader.identifier; });
    const auto place = static_cast<std::size_t>(choice - choices_.begin());
    view_.readers.push_back({reader.name, reader.identifier, reader.identifier == view_.identifier,
                             choice == choices_.end() || place >= kMostKeys ? 0 : place + 1});
  }
  changed();
}

bool MonitorScreen::choose(const std::vector<SeenReader>& readers) {
  if (!keys_) return false;
  choices_ = readers;
  for (ShownReader& shown : view_.readers) shown.key = 0;
  for (std::size_t i = 0; i < std::min(readers.size(), kMostKeys); ++i) {
    for (ShownReader& shown : view_.readers) {
      if (shown.identifier == readers[i].identifier) shown.key = i + 1;
    }
  }
  changed();
  return true;
}

LinkState MonitorScreen::state() const {
  if (isClosing_) return LinkState::closing;
  if (environment_.leaving()) return LinkState::away;
  if (!choices_.empty()) return LinkState::choosing;
  if (view_.reader.empty() || session_ == nullptr) return LinkState::searching;
  if (session_->plugged()) return LinkState::plugged;
  if (session_->linked()) return LinkState::linked;
  return view_.linkUps > 0 ? LinkState::lost : LinkState::connecting;
}

void MonitorScreen::update() {
  const Time now = environment_.loop().now();
  rate_.forget(now);
  view_.state = state();
  view_.frameRate = rate_.arrivals(now);
  view_.byteRate = rate_.bytes(now);
  view_.radio = session_ != nullptr ? session_->radioTrouble() : "";
  if (!log_) return;
  for (const std::string& line : log_->take()) addLine(printable(line));
}

void MonitorScreen::changed() {
  if (std::exchange(isDrawingArmed_, true)) return;
  const Time now = environment_.loop().now();
  environment_.loop().arm(std::max(Time::zero(), lastDrawing_ + kPause - now),
                          [this, alive = std::weak_ptr(alive_)] {
                            if (alive.lock()) draw();
                          });
}

void MonitorScreen::look() {
  changed();
  environment_.loop().arm(kLook, [this, alive = std::weak_ptr(alive_)] {
    if (alive.lock()) look();
  });
}

void MonitorScreen::draw() {
  isDrawingArmed_ = false;
  lastDrawing_ = environment_.loop().now();
  update();
  const ScreenSize size = terminal_.size();
  terminal_.show(drawn(view_, size), size);
}

}  // namespace kestrin::app
