// Fuzzes the gateway's configuration: whatever the text, there is either a configuration that keeps
// every rule or a complaint on one line, with a place that the text has.
//
// Input: the text.
#include <algorithm>
#include <set>

#include "fuzz/Fuzzing.h"
#include "tools/gateway/config/Config.h"

namespace kestrin::fuzz {
namespace {

using gateway::Config;
using gateway::ConfigComplaint;

bool isOneLine(const std::string& text) {
  return std::none_of(text.begin(), text.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
  });
}

void checkComplaint(const ConfigComplaint& complaint, const std::string& text) {
  require(!complaint.text.empty(), "a complaint says what is wrong");
  require(isOneLine(complaint.printed()), "a complaint is one line");
  const auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
  require(complaint.line >= 1 && complaint.line <= lines, "a complaint's line is in the text");
  require(complaint.column >= 1, "columns count from 1");
}

void checkComplaints(const std::vector<ConfigComplaint>& complaints, const std::string& text) {
  std::uint32_t before = 0;
  for (const ConfigComplaint& complaint : complaints) {
    checkComplaint(complaint, text);
    require(complaint.line >= before, "complaints are in the order of their places");
    before = complaint.line;
  }
}

void checkConfig(const Config& config) {
  require(gateway::isPlainName(config.name), "a gateway's name can be part of a topic");
  require(config.log.budget >= 1U << 20U, "a budget is a MiB at least");
  require(!config.log.folder.empty() && !config.broker.host.empty(), "what is needed is there");
  require(config.broker.port > 0, "there is a port");
  require(config.broker.window >= 1 && config.broker.window <= 100, "a window is from 1 to 100");
  std::set<std::string> readers;
  for (const auto& reader : config.readers) {
    require(!reader.reader.empty(), "a reader has a name or an address");
    require(readers.insert(reader.reader).second, "a reader is there once");
  }
  std::set<std::string> consumers;
  for (const auto& consumer : config.consumers) {
    require(gateway::isPlainName(consumer), "a consumer's name can be part of a topic");
    require(consumers.insert(consumer).second, "a consumer is there once");
  }
  require(!config.broker.passwordFile || config.broker.user, "a password has a user");
  require(gateway::needsRestart(config, config).empty(), "what has not changed needs no restart");
}

void parse(const std::string& text) {
  std::vector<ConfigComplaint> complaints;
  const auto config = gateway::parseConfig(text, "gateway.toml", complaints);
  require(config.has_value() == complaints.empty(), "what is wrong draws a complaint");
  checkComplaints(complaints, text);
  if (!config) return;
  checkConfig(*config);
  require(gateway::parseConfig(text + "\n# more", "gateway.toml", complaints) == config,
          "a comment changes nothing");
}

}  // namespace
}  // namespace kestrin::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kestrin::fuzz::parse(kestrin::fuzz::textOf({data, size}));
  return 0;
}
