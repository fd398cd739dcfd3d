// A configuration file as a tree of values with their places, before anything is known of its keys.
//
// Threads: pure functions. Lifetime: plain values. Errors: the first thing that is not TOML, with
// its place.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrin::gateway {

enum class ConfigKind : std::uint8_t { text, whole, fraction, truth, time, list, table };

struct ConfigPlace {
  std::uint32_t line = 1;    ///< From 1.
  std::uint32_t column = 1;  ///< From 1.
};

struct ConfigNode {
  ConfigKind kind = ConfigKind::table;
  ConfigPlace place{};
  std::string key{};  ///< In a table.
  ConfigPlace keyPlace{};
  std::string text{};
  std::int64_t whole = 0;
  bool truth = false;
  std::vector<ConfigNode> children{};  ///< Of a list in their order, of a table by their keys.
};

struct ConfigSyntaxError {
  ConfigPlace place{};
  std::string text;
};

/// The table that `text` is, as far as a configuration can be nested; absent with why not.
std::optional<ConfigNode> readConfigTree(std::string_view text, ConfigSyntaxError& error);

}  // namespace kestrin::gateway
