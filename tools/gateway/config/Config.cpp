#include "tools/gateway/config/Config.h"

#include <algorithm>

namespace kestrin::gateway {

std::string ConfigComplaint::printed() const {
  std::string printed = file;
  if (line > 0) printed += ':' + std::to_string(line) + ':' + std::to_string(column);
  if (!key.empty()) printed += ": " + key;
  return printed + ": " + text;
}

bool isPlainName(std::string_view name) {
  constexpr std::size_t kLongest = 64;
  return !name.empty() && name.size() <= kLongest &&
         std::all_of(name.begin(), name.end(), [](char c) {
           const bool letter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
           return letter || (c >= '0' && c <= '9') || c == '_' || c == '-';
         });
}

std::vector<std::string> needsRestart(const Config& before, const Config& after) {
  std::vector<std::string> keys;
  const auto compare = [&keys](const auto& a, const auto& b, const char* key) {
    if (a != b) keys.emplace_back(key);
  };
  compare(before.name, after.name, "gateway.name");
  compare(before.format, after.format, "gateway.format");
  compare(before.radio, after.radio, "radio.kind");
  compare(before.adapter, after.adapter, "radio.adapter");
  compare(before.simulatedScript, after.simulatedScript, "radio.script");
  compare(before.log.folder, after.log.folder, "log.directory");
  compare(before.log.budget, after.log.budget, "log.budget");
  compare(before.log.syncInterval, after.log.syncInterval, "log.sync");
  const BrokerConfig& was = before.broker;
  const BrokerConfig& is = after.broker;
  compare(was.host, is.host, "broker.host");
  compare(was.port, is.port, "broker.port");
  compare(was.protocol, is.protocol, "broker.protocol");
  compare(was.user, is.user, "broker.user");
  compare(was.passwordFile, is.passwordFile, "broker.password_file");
  compare(was.keepAlive, is.keepAlive, "broker.keep_alive");
  compare(was.window, is.window, "broker.window");
  compare(was.tls.on, is.tls.on, "broker.tls.on");
  compare(was.tls.caFile, is.tls.caFile, "broker.tls.ca");
  compare(was.tls.certificateFile, is.tls.certificateFile, "broker.tls.certificate");
  compare(was.tls.keyFile, is.tls.keyFile, "broker.tls.key");
  const PageConfig& page = before.page;
  compare(page.on, after.page.on, "page.on");
  compare(page.address, after.page.address, "page.address");
  compare(page.port, after.page.port, "page.port");
  compare(page.names, after.page.names, "page.names");
  compare(page.tokenFile, after.page.tokenFile, "page.token_file");
  compare(page.commands, after.page.commands, "page.commands");
  compare(page.certificateFile, after.page.certificateFile, "page.tls.certificate");
  compare(page.keyFile, after.page.keyFile, "page.tls.key");
  return keys;
}

}  // namespace kestrin::gateway
