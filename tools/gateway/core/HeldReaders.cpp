#include "tools/gateway/core/HeldReaders.h"

#include <algorithm>
#include <utility>

namespace kestrin::gateway {

HeldReaders::HeldReaders(Platform platform, Handlers handlers)
    : platform_(std::move(platform)), handlers_(std::move(handlers)) {}

void HeldReaders::configure(const std::vector<ReaderConfig>& readers) {
  std::vector<std::string> gone;
  for (const auto& held : readers_) {
    if (std::none_of(readers.begin(), readers.end(),
                     [&](const ReaderConfig& each) { return each.reader == held.first; })) {
      gone.push_back(held.first);
    }
  }
  for (const std::string& key : gone) remove(key);
  for (const ReaderConfig& each : readers) {
    if (!readers_.contains(each.reader)) add(each);
  }
}

void HeldReaders::add(const ReaderConfig& config) {
  Held& held = readers_[config.reader];
  held.reader = std::make_unique<HeldReader>(
      platform_, config,
      HeldReader::Handlers{.onData = handlers_.onData,
                           .onChange = [this](HeldReader& reader) { changed(reader); },
                           .nextLink = [this] { return ++links_; }});
  changed(*held.reader);
}

void HeldReaders::remove(const std::string& key) {
  const auto found = readers_.find(key);
  if (found == readers_.end()) return;
  handlers_.onRemoved(key);
  handlers_.onTrouble(key, "");
  handlers_.onState(found->second.identifier, std::nullopt);
  readers_.erase(found);
}

void HeldReaders::changed(HeldReader& reader) {
  Held& held = readers_[reader.key()];
  const std::string phase(nameOf(reader.phase()));
  const bool isNewPhase = held.state.phase != phase;
  show(held, isNewPhase ? utcText(handlers_.wallMs()) : held.state.sinceUtc);
  handlers_.onTrouble(reader.key(), reader.trouble());
  if (isNewPhase && reader.phase() == ReaderPhase::pluggedIn) handlers_.onPluggedIn(reader.key());
}

void HeldReaders::show(Held& held, const std::string& sinceUtc) {
  const HeldReader& reader = *held.reader;
  if (!held.identifier.empty() && held.identifier != reader.identifier()) {
    handlers_.onState(held.identifier, std::nullopt);
  }
  held.identifier = reader.identifier();
  held.state = {std::string(nameOf(reader.phase())), reader.name(), held.identifier, sinceUtc,
                reader.trouble()};
  handlers_.onState(held.identifier, held.state);
}

std::size_t HeldReaders::pluggedIn() const {
  return static_cast<std::size_t>(std::count_if(
      readers_.begin(), readers_.end(),
      [](const auto& each) { return each.second.reader->phase() == ReaderPhase::pluggedIn; }));
}

HeldReader* HeldReaders::find(const std::string& part) {
  const auto found = std::find_if(readers_.begin(), readers_.end(), [&](const auto& each) {
    return each.second.reader->isMeant(part);
  });
  return found == readers_.end() ? nullptr : found->second.reader.get();
}

std::vector<ReaderStatus> HeldReaders::status() const {
  std::vector<ReaderStatus> all;
  for (const auto& [key, held] : readers_) {
    ReaderStatus& reader = all.emplace_back();
    reader.key = key;
    reader.reader = held.state.reader;
    reader.name = held.state.name;
    reader.phase = held.state.phase;
    reader.sinceUtc = held.state.sinceUtc;
    reader.trouble = held.state.trouble;
  }
  return all;
}

void HeldReaders::close(std::function<void()> done) {
  const auto open = std::make_shared<std::size_t>(readers_.size() + 1);
  const auto one = [open, done = std::move(done)] {
    if (--*open == 0) done();
  };
  for (const auto& [key, held] : readers_) held.reader->close(one);
  one();
}

}  // namespace kestrin::gateway
