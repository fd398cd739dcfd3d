#include "tools/kestrin/session/ReaderChoice.h"

#include <KestrinBLESDK/platform/NSString.h>

#include <algorithm>

#include "tools/kestrin/text/SafeText.h"

namespace kestrin::app {
namespace {

char lowered(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool sameLetters(const std::string& a, const std::string& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char one, char other) { return lowered(one) == lowered(other); });
}

}  // namespace

void ReaderChoice::take(const std::shared_ptr<CBPeripheral>& peripheral) {
  const std::string name = peripheral->name().value_or("");
  for (SeenReader& reader : seen_) {
    if (reader.peripheral != peripheral) continue;
    reader.name = name;
    return;
  }
  seen_.push_back({peripheral, name, peripheral->identifier()});
}

ReaderChoice::Match ReaderChoice::match(const SeenReader& reader) const {
  if (wanted_.empty()) return Match::part;
  if (sameLetters(reader.identifier, wanted_)) return Match::identifier;
  if (reader.name == wanted_) return Match::name;
  return containsString(reader.name, wanted_) ? Match::part : Match::none;
}

std::vector<SeenReader> ReaderChoice::meant() const {
  Match best = Match::none;
  for (const SeenReader& reader : seen_) best = std::max(best, match(reader));
  std::vector<SeenReader> readers;
  if (best == Match::none) return readers;
  for (const SeenReader& reader : seen_) {
    if (match(reader) == best) readers.push_back(reader);
  }
  return readers;
}

bool ReaderChoice::isIdentified() const {
  return std::any_of(seen_.begin(), seen_.end(), [this](const SeenReader& reader) {
    return match(reader) == Match::identifier;
  });
}

std::string listOf(const std::vector<SeenReader>& readers) {
  std::string text;
  for (const SeenReader& reader : readers) {
    text += text.empty() ? "'" : ", '";
    text += printable(reader.name) + "' (" + printable(reader.identifier) + ")";
  }
  return text;
}

}  // namespace kestrin::app
