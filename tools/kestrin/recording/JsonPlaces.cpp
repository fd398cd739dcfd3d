#include "tools/kestrin/recording/JsonPlaces.h"

#include <algorithm>
#include <unordered_set>

namespace kestrin::app {
namespace {

std::size_t afterBlanks(std::string_view line, std::size_t place) {
  while (place < line.size() && (line[place] == ' ' || line[place] == '\t')) ++place;
  return place;
}

}  // namespace

JsonPlaces::JsonPlaces(std::string_view line) {
  for (std::size_t place = 0; place < line.size(); ++place) {
    const char c = line[place];
    if (c == '"') {
      takeText(line, place);
    } else if (c == '{' || c == '[') {
      ++depth_;
      if (depth_ > openings_.size()) openings_.push_back(place + 1);
    } else if ((c == '}' || c == ']') && depth_ > 0) {
      --depth_;
    }
  }
}

/// Leaves `place` at the closing quotation mark.
void JsonPlaces::takeText(std::string_view line, std::size_t& place) {
  const std::size_t begin = place;
  for (++place; place < line.size() && line[place] != '"'; ++place) {
    if (line[place] == '\\') ++place;
  }
  if (depth_ != 1 || place >= line.size()) return;
  const std::size_t colon = afterBlanks(line, place + 1);
  if (colon >= line.size() || line[colon] != ':') return;
  keys_.push_back({std::string(line.substr(begin + 1, place - begin - 1)), begin + 1,
                   afterBlanks(line, colon + 1) + 1});
}

std::size_t JsonPlaces::columnOf(std::string_view key) const {
  const auto found =
      std::find_if(keys_.begin(), keys_.end(), [key](const Key& k) { return k.key == key; });
  return found == keys_.end() ? 1 : found->valueColumn;
}

std::optional<std::size_t> JsonPlaces::deeperThan(std::size_t limit) const {
  if (openings_.size() <= limit) return std::nullopt;
  return openings_[limit];
}

std::optional<JsonPlaces::Key> JsonPlaces::repeatedKey() const {
  std::unordered_set<std::string_view> seen;
  for (const Key& key : keys_) {
    if (!seen.insert(key.key).second) return key;
  }
  return std::nullopt;
}

}  // namespace kestrin::app
