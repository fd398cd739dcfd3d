#include "KestrinBLESDK/reader/ReaderChoice.h"

#include <algorithm>
#include <chrono>

#include "KestrinBLESDK/platform/NSString.h"
#include "KestrinBLESDK/reader/Claim.h"
#include "KestrinBLESDK/recording/RecordedPlatform.h"

namespace kestrin::reader {
namespace {

char lowered(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool sameLetters(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char one, char other) { return lowered(one) == lowered(other); });
}

}  // namespace

bool ReaderChoice::take(const std::shared_ptr<CBPeripheral>& device) {
  const std::string name = device->name().value_or("");
  for (Seen& seen : seen_) {
    if (seen.device != device) continue;
    seen.reader.name = name;
    return false;
  }
  seen_.push_back({device, {name, device->identifier()}});
  return true;
}

ReaderChoice::Match ReaderChoice::match(const SeenReader& reader) const {
  if (wanted_.empty()) return Match::part;
  if (sameLetters(reader.identifier, wanted_)) return Match::identifier;
  if (reader.name == wanted_) return Match::name;
  return containsString(reader.name, wanted_) ? Match::part : Match::none;
}

std::vector<ReaderChoice::Seen> ReaderChoice::meant() const {
  Match best = Match::none;
  for (const Seen& seen : seen_) best = std::max(best, match(seen.reader));
  std::vector<Seen> readers;
  if (best == Match::none) return readers;
  for (const Seen& seen : seen_) {
    if (match(seen.reader) == best && !reader::isHeld(seen)) readers.push_back(seen);
  }
  return readers;
}

bool ReaderChoice::isIdentified() const {
  return std::any_of(seen_.begin(), seen_.end(),
                     [this](const Seen& seen) { return match(seen.reader) == Match::identifier; });
}

const ReaderChoice::Seen* ReaderChoice::find(std::string_view identifier) const {
  const auto found = std::find_if(seen_.begin(), seen_.end(), [&](const Seen& seen) {
    return sameLetters(seen.reader.identifier, identifier);
  });
  return found == seen_.end() ? nullptr : &*found;
}

std::string ReaderChoice::notFound(std::string_view within) const {
  std::string text = "no reader";
  if (!wanted_.empty()) text += " whose name contains " + inQuotes(wanted_);
  return text + " was found within " + std::string(within);
}

std::string ReaderChoice::inRange() const {
  std::string text = seen_.empty() ? "no reader at all is in range" : "";
  for (const Seen& seen : seen_) {
    text += (text.empty() ? "in range: " : ", ") + inQuotes(seen.reader.name);
    if (reader::isHeld(seen)) text += " (held by this program already)";
  }
  const std::string why = held();
  return why.empty() ? text : text + "; " + why;
}

std::string ReaderChoice::ambiguous(const std::vector<Seen>& meant) const {
  std::string text = wanted_.empty() ? "several readers are in range"
                                     : inQuotes(wanted_) + " fits several readers";
  const char* separator = ": ";
  for (const Seen& seen : meant) {
    text += separator + inQuotes(seen.reader.name) + " (" + seen.reader.identifier + ")";
    separator = ", ";
  }
  return text + "; give the whole name of one, or its identifier";
}

std::string ReaderChoice::held() const {
  // A device that has a link is often not heard, so those that are held are looked through.
  for (const SeenReader& reader : Claim::heldOf(radio_)) {
    if (match(reader) < Match::name) continue;
    return inQuotes(wanted_) + " is held by another Reader of this program; drop that one first";
  }
  return "";
}

bool isHeld(const ReaderChoice::Seen& seen) { return Claim::isHeld(unrecorded(seen.device)); }

std::string inQuotes(std::string_view text) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string line = "'";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\\') {
      line += "\\\\";
    } else if (byte >= 0x20 && byte < 0x7F) {
      line += c;
    } else {
      line += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 0x0F]};
    }
  }
  return line + "'";
}

std::string inSeconds(Time span) {
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(std::max(span, Time::zero())).count();
  std::string text = std::to_string(milliseconds / 1000);
  if (milliseconds % 1000 != 0) {
    const std::string fraction = std::to_string(1000 + milliseconds % 1000);
    text += '.' + fraction.substr(1, fraction.find_last_not_of('0'));
  }
  return text + " s";
}

}  // namespace kestrin::reader
