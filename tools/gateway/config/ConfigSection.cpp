#include "tools/gateway/config/ConfigSection.h"

#include <algorithm>

#include "tools/NearestWord.h"
#include "tools/gateway/config/Quantities.h"

namespace kestrin::gateway {
namespace {

std::string_view wordFor(ConfigKind kind) {
  switch (kind) {
    case ConfigKind::text:
      return "a text";
    case ConfigKind::whole:
      return "a whole number";
    case ConfigKind::fraction:
      return "a number that is not whole";
    case ConfigKind::truth:
      return "true or false";
    case ConfigKind::time:
      return "a date or a time";
    case ConfigKind::list:
      return "a list";
    case ConfigKind::table:
      return "a section";
  }
  return "";
}

std::string listed(const std::vector<std::string>& words) {
  std::string text;
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (i > 0) text += i + 1 == words.size() ? " or " : ", ";
    text += '"' + words[i] + '"';
  }
  return text;
}

bool isIn(const std::vector<std::string>& words, std::string_view word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

/// "broker.tls" of "broker.tls.ca", and "ca".
std::string_view sectionOf(std::string_view path) {
  return path.substr(0, std::min(path.rfind('.'), path.size()));
}
std::string_view lastOf(std::string_view path) {
  const auto dot = path.rfind('.');
  return dot == std::string_view::npos ? path : path.substr(dot + 1);
}

}  // namespace

const ConfigNode* ConfigSection::find(std::string_view key) const {
  for (const ConfigNode& child : table_.children) {
    if (child.key == key) return &child;
  }
  return nullptr;
}

std::optional<std::string> ConfigSection::text(std::string_view key, std::string_view right) {
  const ConfigNode* const value = find(key);
  if (value == nullptr) return std::nullopt;
  if (value->kind != ConfigKind::text) {
    refuseKind(*value, key, right);
    return std::nullopt;
  }
  if (value->text.empty()) {
    refuse(key, "it is empty; " + std::string(right) + " would be right");
    return std::nullopt;
  }
  return value->text;
}

std::optional<std::uint64_t> ConfigSection::whole(std::string_view key, std::uint64_t least,
                                                  std::uint64_t most, std::string_view right) {
  const ConfigNode* const value = find(key);
  if (value == nullptr) return std::nullopt;
  if (value->kind != ConfigKind::whole) {
    refuseKind(*value, key, right);
    return std::nullopt;
  }
  const auto number = static_cast<std::uint64_t>(value->whole);
  if (value->whole >= 0 && number >= least && number <= most) return number;
  refuse(key, std::to_string(value->whole) + " is out of range; " + std::string(right) +
                  " would be right");
  return std::nullopt;
}

std::optional<bool> ConfigSection::truth(std::string_view key) {
  const ConfigNode* const value = find(key);
  if (value == nullptr) return std::nullopt;
  if (value->kind == ConfigKind::truth) return value->truth;
  refuseKind(*value, key, "true or false, without quotation marks,");
  return std::nullopt;
}

std::optional<std::string> ConfigSection::word(std::string_view key,
                                               const std::vector<std::string>& words) {
  auto its = text(key, listed(words));
  if (!its || isIn(words, *its)) return its;
  refuse(key, '"' + shownText(*its) + "\" is not known; " + listed(words) + " would be right");
  return std::nullopt;
}

void ConfigSection::refuse(std::string_view key, const std::string& text) {
  const ConfigNode* const value = find(key);
  refuseAt(value == nullptr ? table_.place : value->place, key, text);
}

void ConfigSection::refuseAt(ConfigPlace place, std::string_view key, const std::string& text) {
  complaints_.push_back({file_, place.line, place.column, pathOf(key), text});
}

void ConfigSection::refuseKind(const ConfigNode& value, std::string_view key,
                               std::string_view right) {
  refuseAt(
      value.place, key,
      "it is " + std::string(wordFor(value.kind)) + "; " + std::string(right) + " would be right");
}

void ConfigSection::require(std::string_view key, std::string_view right) {
  if (!has(key)) refuse(key, "it is missing; " + std::string(right) + " would be right");
}

void ConfigSection::refuseOthers(const std::vector<std::string>& known,
                                 const std::vector<std::string>& elsewhere,
                                 std::string_view judged) {
  for (const ConfigNode& child : table_.children) {
    if (child.key != judged && !isIn(known, child.key)) refuseUnknown(child, known, elsewhere);
  }
}

std::string ConfigSection::pathOf(std::string_view key) const {
  if (path_.empty() || key.empty()) return path_ + std::string(key);
  return path_ + '.' + std::string(key);
}

void ConfigSection::refuseUnknown(const ConfigNode& child, const std::vector<std::string>& known,
                                  const std::vector<std::string>& elsewhere) {
  std::string text = "this key is not known";
  const auto other = std::find_if(elsewhere.begin(), elsewhere.end(),
                                  [&](const auto& path) { return lastOf(path) == child.key; });
  if (const auto nearest = tools::nearestWord(child.key, known); !nearest.empty()) {
    text += "; " + nearest + " would be right";
  } else if (other != elsewhere.end()) {
    text += " here; it belongs to [" + std::string(sectionOf(*other)) + ']';
  } else {
    text += path_.empty() ? "; there are " : "; its section has ";
    for (std::size_t i = 0; i < known.size(); ++i) text += (i > 0 ? ", " : "") + known[i];
  }
  refuseAt(child.keyPlace, shownText(child.key), text);
}

}  // namespace kestrin::gateway
