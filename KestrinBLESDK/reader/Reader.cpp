#include "KestrinBLESDK/Reader.h"

#include <array>
#include <utility>

#include "KestrinBLESDK/reader/Errors.h"
#include "KestrinBLESDK/reader/ReaderCore.h"

namespace kestrin {

std::string_view nameOf(ReaderPhase phase) noexcept {
  switch (phase) {
    case ReaderPhase::radioOff:
      return "radioOff";
    case ReaderPhase::searching:
      return "searching";
    case ReaderPhase::connecting:
      return "connecting";
    case ReaderPhase::linkingUp:
      return "linkingUp";
    case ReaderPhase::pluggedIn:
      return "pluggedIn";
    case ReaderPhase::lost:
      return "lost";
    case ReaderPhase::away:
      return "away";
    case ReaderPhase::closed:
      return "closed";
  }
  return "unknown";
}

bool mayFollow(ReaderPhase from, ReaderPhase to) noexcept {
  using enum ReaderPhase;
  if (from == closed || from == to) return false;
  if (to == closed || to == away || to == radioOff) return true;
  switch (from) {
    case radioOff:
      return to == searching || to == connecting || to == linkingUp;
    case searching:
    case lost:
      return to == connecting;
    case connecting:
      return to == linkingUp || to == lost;
    case linkingUp:
      return to == pluggedIn || to == lost;
    case pluggedIn:
      return to == lost;
    case away:
      return to == searching || to == connecting;
    case closed:
      break;
  }
  return false;
}

std::unique_ptr<Reader> Reader::create(const Platform& platform, ReaderOptions options,
                                       ReaderHandlers handlers, NSError* error) {
  const Platform whole = platform.completed();
  if (whole.mainRunLoop.expired()) {
    if (error != nullptr) {
      *error = reader::errorOf(ReaderError::noRunLoop,
                               "the platform's run loop is gone; keep it as long as its readers");
    }
    return nullptr;
  }
  auto reader = std::make_unique<Reader>(Private(), whole, std::move(options), std::move(handlers));
  reader->core_->start();
  return reader;
}

Reader::Reader(Private /*key*/, const Platform& platform, ReaderOptions options,
               ReaderHandlers handlers)
    : core_(std::make_shared<reader::ReaderCore>(*this, platform, std::move(options),
                                                 std::move(handlers))) {}

Reader::~Reader() { core_->drop(); }

ReaderPhase Reader::phase() const noexcept { return core_->phase(); }

const std::string& Reader::name() const noexcept { return core_->name(); }

const std::string& Reader::identifier() const noexcept { return core_->identifier(); }

bool Reader::hasLink() const noexcept { return core_->hasLink(); }

std::vector<SeenReader> Reader::seen() const {
  std::vector<SeenReader> readers;
  for (const auto& each : core_->choice().seen()) readers.push_back(each.reader);
  return readers;
}

std::vector<SeenReader> Reader::candidates() const {
  std::vector<SeenReader> readers;
  for (const auto& each : core_->choice().meant()) readers.push_back(each.reader);
  return readers;
}

const RadioWatch& Reader::radio() const noexcept { return core_->radio(); }

bool Reader::choose(std::string_view identifier) { return core_->choose(identifier); }

void Reader::send(const NSData& frame, SendHandler done) { core_->send(frame, std::move(done)); }

Reader::ExchangeId Reader::exchange(const NSData& frame, Time limit, AnswerHandler done) {
  return core_->exchange(frame, limit, std::move(done));
}

void Reader::forget(ExchangeId exchange) { core_->forget(exchange); }

void Reader::leave(std::function<void()> done) { core_->leaveSoon(std::move(done)); }

void Reader::comeBack() { core_->comeBackSoon(); }

void Reader::close(std::function<void()> done) { core_->close(std::move(done)); }

}  // namespace kestrin
