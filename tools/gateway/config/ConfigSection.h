// One section of a configuration, from which values are taken key by key. What is not right draws a
// complaint and is absent.
//
// Threads: one. Lifetime: the tree and the list of complaints outlive it. Errors: as complaints.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/gateway/config/Config.h"
#include "tools/gateway/config/ConfigTree.h"

namespace kestrin::gateway {

class ConfigSection {
 public:
  /// `path` is how complaints call it, and empty for the whole file.
  ConfigSection(const ConfigNode& table, std::string path, const std::string& file,
                std::vector<ConfigComplaint>& complaints)
      : table_(table), path_(std::move(path)), file_(file), complaints_(complaints) {}

  [[nodiscard]] const ConfigNode* find(std::string_view key) const;
  [[nodiscard]] bool has(std::string_view key) const { return find(key) != nullptr; }

  /// `right` says what would be right, as in "a name in quotation marks".
  std::optional<std::string> text(std::string_view key, std::string_view right);
  std::optional<std::uint64_t> whole(std::string_view key, std::uint64_t least, std::uint64_t most,
                                     std::string_view right);
  std::optional<bool> truth(std::string_view key);
  /// One of `words`.
  std::optional<std::string> word(std::string_view key, const std::vector<std::string>& words);

  /// About a key that is there or not; its name in quotation marks is not repeated in `text`.
  void refuse(std::string_view key, const std::string& text);
  void refuseAt(ConfigPlace place, std::string_view key, const std::string& text);
  void refuseKind(const ConfigNode& value, std::string_view key, std::string_view right);
  void require(std::string_view key, std::string_view right);
  /// Complains about every key but `known` and `judged`. `elsewhere` are the keys of other
  /// sections, with their path.
  void refuseOthers(const std::vector<std::string>& known,
                    const std::vector<std::string>& elsewhere, std::string_view judged);

 private:
  [[nodiscard]] std::string pathOf(std::string_view key) const;
  void refuseUnknown(const ConfigNode& child, const std::vector<std::string>& known,
                     const std::vector<std::string>& elsewhere);

  const ConfigNode& table_;
  const std::string path_;
  const std::string& file_;
  std::vector<ConfigComplaint>& complaints_;
};

}  // namespace kestrin::gateway
