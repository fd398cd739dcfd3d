#include "soak/Ledger.h"

#include <algorithm>

namespace kestrin::test {
namespace {

/// Whether a scan from the first byte looks for a preamble at `place`, rather than standing inside
/// a frame there.
bool looksForPreambleAt(const Bytes& bytes, std::size_t place) {
  std::size_t at = 0;
  while (at < place) {
    if (bytes[at] != 0xBB) {
      ++at;
      continue;
    }
    const auto byte = [&](std::size_t offset) -> std::size_t {
      return at + offset < bytes.size() ? bytes[at + offset] : 0U;
    };
    const std::size_t length = byte(3) << 8 | byte(4);
    if ((byte(1) & 3) == 0) {
      at += 2;
    } else if (length >= 1022) {
      at += 5;
    } else {
      at += byte(5 + length) == 0x7E ? length + 8 : length + 6;
    }
  }
  return at == place;
}

/// The number in a frame's description, `<bb012200 08000000 2a...`.
std::uint32_t numberIn(std::string description) {
  std::erase_if(description, [](char c) { return c == ' ' || c == '<' || c == '>'; });
  return static_cast<std::uint32_t>(std::stoul(description.substr(10, 8), nullptr, 16));
}

}  // namespace

Bytes numberedFrame(std::uint32_t number, const Bytes& more) {
  Bytes payload;
  for (int shift = 24; shift >= 0; shift -= 8) {
    payload.push_back(static_cast<std::uint8_t>(number >> shift & 0xFF));
  }
  return referenceFrame(0x01, 0x22, joined({payload, more}));
}

void Ledger::linkEnded() {
  for (const Piece& piece : onItsWay_) {
    for (const Source& source : piece.sources) {
      if (source.frame != Source::kNoFrame) close(source.frame, Fate::lostWithLink);
    }
  }
  onItsWay_.clear();
}

std::vector<std::string> Ledger::arrival(const Bytes& value) {
  if (onItsWay_.empty() || onItsWay_.front().bytes != value) {
    problems_.emplace_back("a value arrived that was not the next one on its way");
    return take(value, std::vector<Source>(value.size()));
  }
  const Piece piece = std::move(onItsWay_.front());
  onItsWay_.pop_front();
  return take(value, piece.sources);
}

std::vector<std::string> Ledger::repetition(const Bytes& value) {
  return take(value, std::vector<Source>(value.size()));
}

std::vector<std::string> Ledger::take(const Bytes& value, const std::vector<Source>& sources) {
  static const std::string kDelivery = LiteralAssembler::deliveryOf("");
  const Bytes before = joined({twin_.kept(), value});
  sources_.insert(sources_.end(), sources.begin(), sources.end());
  twin_.readData(value);
  std::vector<std::string> deliveries;
  for (const std::string& event : twin_.take()) {
    if (!event.starts_with(kDelivery)) continue;
    deliveries.push_back(event.substr(kDelivery.size()));
    delivered(deliveries.back());
  }
  leave(before, before.size() - twin_.kept().size());
  mostKept_ = std::max(mostKept_, twin_.kept().size());
  return deliveries;
}

void Ledger::delivered(const std::string& frame) {
  const std::uint32_t number = numberIn(frame);
  if (number >= fates_.size()) {
    problems_.push_back("a frame was delivered that was never sent: " + frame);
  } else {
    fates_[number] = Fate::delivered;
  }
}

void Ledger::leave(const Bytes& before, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    const Source source = sources_.front();
    sources_.pop_front();
    if (!source.preamble) continue;
    if (before.size() == 1) {
      close(source.frame, Fate::lonePreamble);
    } else {
      close(source.frame, looksForPreambleAt(before, i) ? Fate::unexplained : Fate::swallowed);
    }
  }
}

/// What has happened to a frame first stands.
void Ledger::close(std::uint32_t frame, Fate fate) {
  if (fates_[frame] != Fate::underway) return;
  fates_[frame] = fate;
  if (fate == Fate::unexplained) {
    problems_.push_back("frame " + std::to_string(frame) + " left the buffer for no known reason");
  }
}

void Ledger::finish() {
  linkEnded();
  const Bytes& kept = twin_.kept();
  for (std::size_t i = 0; i < kept.size(); ++i) {
    if (sources_[i].preamble && !looksForPreambleAt(kept, i)) {
      close(sources_[i].frame, Fate::swallowed);
    }
  }
}

std::size_t Ledger::count(Fate fate) const {
  return static_cast<std::size_t>(std::count(fates_.begin(), fates_.end(), fate));
}

}  // namespace kestrin::test
