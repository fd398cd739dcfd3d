#include <toml++/toml.h>

#include <algorithm>
#include <sstream>

#include "tools/gateway/config/ConfigTree.h"
#include "tools/gateway/config/Quantities.h"

namespace kestrin::gateway {
namespace {

// A key of many parts is a table in a table in a table, and each is left by a call within a call:
// so a line and the whole are bounded before anything is read.
constexpr std::size_t kLongestLine = 1000;
constexpr std::size_t kLongestText = std::size_t{1} << 18U;
// A value in a list in a table in a table.
constexpr std::size_t kDeepest = 5;
constexpr std::size_t kLongestReason = 200;

ConfigPlace placeOf(const toml::source_region& source) {
  return {std::max<std::uint32_t>(source.begin.line, 1),
          std::max<std::uint32_t>(source.begin.column, 1)};
}

ConfigKind kindOf(const toml::node& node) {
  switch (node.type()) {
    case toml::node_type::string:
      return ConfigKind::text;
    case toml::node_type::integer:
      return ConfigKind::whole;
    case toml::node_type::floating_point:
      return ConfigKind::fraction;
    case toml::node_type::boolean:
      return ConfigKind::truth;
    case toml::node_type::array:
      return ConfigKind::list;
    case toml::node_type::table:
      return ConfigKind::table;
    default:
      return ConfigKind::time;
  }
}

ConfigNode treeOf(const toml::node& node, std::size_t deepest) {
  ConfigNode tree;
  tree.kind = kindOf(node);
  tree.place = placeOf(node.source());
  if (const auto* const text = node.as_string()) tree.text = text->get();
  if (const auto* const whole = node.as_integer()) tree.whole = whole->get();
  if (const auto* const truth = node.as_boolean()) tree.truth = truth->get();
  if (deepest == 0) return tree;
  if (const auto* const list = node.as_array()) {
    for (const toml::node& each : *list) tree.children.push_back(treeOf(each, deepest - 1));
  }
  if (const auto* const table = node.as_table()) {
    for (const auto& [key, value] : *table) {
      ConfigNode& child = tree.children.emplace_back(treeOf(value, deepest - 1));
      child.key = key.str();
      child.keyPlace = placeOf(key.source());
    }
  }
  return tree;
}

/// What keeps the text from being read at all.
std::optional<ConfigSyntaxError> boundsError(std::string_view text) {
  if (text.size() > kLongestText) {
    return ConfigSyntaxError{{},
                             "the file has " + std::to_string(text.size()) +
                                 " bytes; a configuration has at most " +
                                 std::to_string(kLongestText)};
  }
  ConfigPlace place;
  for (const char c : text) {
    if (c == '\0') return ConfigSyntaxError{place, "this is not a text: it has a byte 00"};
    if (place.column > kLongestLine) {
      return ConfigSyntaxError{
          place, "the line is longer than " + std::to_string(kLongestLine) + " characters"};
    }
    place = c == '\n' ? ConfigPlace{place.line + 1, 1} : ConfigPlace{place.line, place.column + 1};
  }
  return std::nullopt;
}

}  // namespace

std::optional<ConfigNode> readConfigTree(std::string_view text, ConfigSyntaxError& error) {
  if (auto beyond = boundsError(text)) {
    error = std::move(*beyond);
    return std::nullopt;
  }
  try {
    return treeOf(toml::parse(text), kDeepest);
  } catch (const toml::parse_error& wrong) {
    error = {placeOf(wrong.source()),
             "this is not TOML: " + shownText(wrong.description(), kLongestReason)};
  } catch (const std::exception& wrong) {
    error = {{}, "this cannot be read as TOML: " + shownText(wrong.what(), kLongestReason)};
  }
  return std::nullopt;
}

}  // namespace kestrin::gateway
