// What a configuration may say: which keys there are, and what their values may be.
//
// Threads: pure functions. Lifetime: plain values. Errors: every complaint at once.
#pragma once

#include <string>
#include <vector>

#include "tools/gateway/config/Config.h"
#include "tools/gateway/config/ConfigTree.h"

namespace kestrin::gateway {

struct JudgedConfig {
  ConfigNode tree{};
  Config config{};                          ///< Without what the complaints are about.
  std::vector<ConfigComplaint> complaints;  ///< In the order of their places.
};

/// Relative names of files count from the folder of `file`.
JudgedConfig judgedText(const std::string& text, const std::string& file);

/// Where the value of a key stands, for example of "broker.tls.ca" or "webhook[2].ca"; the first
/// line without one.
ConfigPlace placeOfKey(const ConfigNode& tree, std::string_view path);

void sortByPlace(std::vector<ConfigComplaint>& complaints);

}  // namespace kestrin::gateway
