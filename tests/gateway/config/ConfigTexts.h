// Configurations as tests write them.
//
// Threads: one. Lifetime: plain values. Errors: a text that is not right fails the test.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/gateway/config/Config.h"

namespace kestrin::gateway {

/// The least that a configuration has; each of its sections can be replaced.
struct ConfigText {
  std::string gateway = "[gateway]\nname = \"dock\"\n";
  std::string log = "[log]\ndirectory = \"/log\"\n";
  std::string broker = "[broker]\nhost = \"localhost\"\n";
  std::string more = "[[reader]]\nname = \"KVR-0417\"\n";

  [[nodiscard]] std::string text() const { return gateway + log + broker + more; }
};

inline std::vector<std::string> printedOf(const std::vector<ConfigComplaint>& complaints) {
  std::vector<std::string> lines;
  lines.reserve(complaints.size());
  for (const ConfigComplaint& complaint : complaints) lines.push_back(complaint.printed());
  return lines;
}

/// Of a text that is right.
inline Config configOf(const std::string& text, const std::string& file = "gateway.toml") {
  std::vector<ConfigComplaint> complaints;
  auto config = parseConfig(text, file, complaints);
  EXPECT_TRUE(config);
  EXPECT_EQ(printedOf(complaints), std::vector<std::string>()) << text;
  return config.value_or(Config{});
}

/// Of a text that is not.
inline std::vector<std::string> complaintsOf(const std::string& text) {
  std::vector<ConfigComplaint> complaints;
  EXPECT_FALSE(parseConfig(text, "gateway.toml", complaints)) << text;
  EXPECT_FALSE(complaints.empty()) << text;
  return printedOf(complaints);
}

/// Of a text with one thing that is not right.
inline std::string complaintOf(const std::string& text) {
  const auto lines = complaintsOf(text);
  EXPECT_EQ(lines.size(), 1U) << text << (lines.size() > 1 ? lines[1] : "");
  return lines.empty() ? "" : lines.front();
}

}  // namespace kestrin::gateway
